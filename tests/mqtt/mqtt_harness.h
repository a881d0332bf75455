// Debian's mosquitto broker on a free loopback port, and a libmosquitto
// client beside it that records every message: the independent peer the
// bridge is tested against.
#ifndef LOGO_TESTS_MQTT_HARNESS_H
#define LOGO_TESTS_MQTT_HARNESS_H

#include <arpa/inet.h>
#include <fcntl.h>
#include <mosquitto.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

constexpr int kAttempts = 1200;  // bounded waits: 1200 x 25 ms, room for a sanitized build
constexpr std::chrono::milliseconds kPoll{25};

// A free port (port 0: bound and let go), or whether one takes connections.
inline int loopback(int port)
{
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    auto* raw = reinterpret_cast<sockaddr*>(&address);
    socklen_t length = sizeof address;
    const int result = port != 0 ? connect(fd, raw, length) == 0
                                 : (bind(fd, raw, length), getsockname(fd, raw, &length), ntohs(address.sin_port));
    close(fd);
    return result;
}

// A program with these arguments (the first its path), its standard output
// and error to `logPath`; it dies with the test, should the test die first.
// Everything is made before the fork: the child of a threaded program may
// only call what is safe in a signal handler.
inline pid_t spawn(const std::vector<std::string>& args, const std::string& logPath)
{
    std::vector<char*> argv;
    for (const std::string& arg : args)
        argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const int log = open(logPath.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        dup2(log, 1);
        dup2(log, 2);
        execv(argv[0], argv.data());
        _exit(127);
    }
    return pid;
}

inline std::string fileText(const std::string& path)
{
    std::ifstream file(path);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

// Where each thread of a process waits: what a hang is told by.
inline std::string threadsOf(pid_t pid)
{
    std::string text;
    const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
    std::error_code error;
    for (const auto& task : std::filesystem::directory_iterator(tasks, error)) {
        const std::string dir = task.path().string();
        std::string name = fileText(dir + "/comm");
        if (!name.empty() && name.back() == '\n')
            name.pop_back();
        std::string masks;  // pending, blocked, ignored, caught
        std::istringstream status(fileText(dir + "/status"));
        for (std::string line; std::getline(status, line);)
            if (line.rfind("Sig", 0) == 0 || line.rfind("ShdPnd", 0) == 0)
                masks += " " + line;
        text += task.path().filename().string() + " " + name + ": waits in " + fileText(dir + "/wchan") + masks +
                "\n" + fileText(dir + "/stack");
    }
    return text;
}

// Signals the process and waits a bounded time for it to end; its exit
// status, or -1 when it had to be killed (and then, in `hung`, where its
// threads were).
inline int stopProcess(pid_t pid, int signal, std::string* hung = nullptr)
{
    kill(pid, signal);
    int status = 0;
    for (int attempt = 0; attempt < kAttempts; ++attempt, std::this_thread::sleep_for(kPoll))
        if (waitpid(pid, &status, WNOHANG) == pid)
            return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    if (hung)
        *hung = threadsOf(pid);
    kill(pid, SIGKILL);
    waitpid(pid, &status, 0);
    return -1;
}

// Whether the file holds the text, within the bounded wait.
inline bool fileSays(const std::string& path, const std::string& text)
{
    for (int attempt = 0; attempt < kAttempts; ++attempt, std::this_thread::sleep_for(kPoll)) {
        if (fileText(path).find(text) != std::string::npos)
            return true;
    }
    return false;
}

// A broker without persistence: stopped, it forgets every retained message.
class Broker {
public:
    explicit Broker(const std::string& dir, std::string extraConfig = "")
        : dir_(dir), config_(dir + "/mosquitto.conf"), port_(loopback(0))
    {
        std::ofstream(config_) << "listener " << port_ << " 127.0.0.1\n"
                               << (extraConfig.empty() ? "allow_anonymous true\n" : extraConfig);
        start();
    }
    ~Broker() { stop(); }

    int port() const { return port_; }
    pid_t pid() const { return pid_; }
    void start()
    {
        pid_ = spawn({MOSQUITTO_PATH, "-c", config_}, dir_ + "/mosquitto.log");
        for (int attempt = 0; attempt < kAttempts && !loopback(port_); ++attempt)
            std::this_thread::sleep_for(kPoll);
    }
    void stop()
    {
        if (pid_ > 0)
            stopProcess(pid_, SIGTERM);
        pid_ = -1;
    }

private:
    const std::string dir_, config_;
    const int port_;
    pid_t pid_ = -1;
};

struct Message {
    std::string topic, payload;
    bool retained;
};

// Subscribed to everything from the moment it connects.
class Peer {
public:
    explicit Peer(int port, const std::string& user = "", const std::string& password = "")
    {
        mosquitto_lib_init();
        mosq_ = mosquitto_new(nullptr, true, this);
        if (!user.empty())
            mosquitto_username_pw_set(mosq_, user.c_str(), password.c_str());
        mosquitto_message_callback_set(mosq_, [](mosquitto*, void* self, const mosquitto_message* m) {
            Peer& peer = *static_cast<Peer*>(self);
            const std::lock_guard<std::mutex> lock(peer.mutex_);
            const char* data = static_cast<const char*>(m->payload);
            peer.messages_.push_back({m->topic, m->payloadlen ? std::string(data, m->payloadlen) : "", m->retain});
        });
        connected_ = mosquitto_connect(mosq_, "127.0.0.1", port, 30) == MOSQ_ERR_SUCCESS &&
                     mosquitto_subscribe(mosq_, nullptr, "#", 1) == MOSQ_ERR_SUCCESS &&
                     mosquitto_loop_start(mosq_) == MOSQ_ERR_SUCCESS;
    }
    ~Peer()
    {
        mosquitto_disconnect(mosq_);
        mosquitto_loop_stop(mosq_, false);
        mosquitto_destroy(mosq_);
    }

    bool connected() const { return connected_; }
    void publish(const std::string& topic, const std::string& payload, bool retain = false)
    {
        mosquitto_publish(mosq_, nullptr, topic.c_str(), static_cast<int>(payload.size()), payload.data(), 1, retain);
    }
    size_t count() const
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        return messages_.size();
    }
    // The first message on the topic from message `from` on whose payload
    // passes; false after the bounded wait.
    bool await(const std::string& topic, const std::function<bool(const std::string&)>& passes, size_t from = 0,
               Message* found = nullptr) const
    {
        for (int attempt = 0; attempt < kAttempts; ++attempt, std::this_thread::sleep_for(kPoll)) {
            const std::lock_guard<std::mutex> lock(mutex_);
            for (size_t m = from; m < messages_.size(); ++m) {
                if (messages_[m].topic != topic || !passes(messages_[m].payload))
                    continue;
                if (found)
                    *found = messages_[m];
                return true;
            }
        }
        return false;
    }

private:
    mosquitto* mosq_ = nullptr;
    bool connected_ = false;
    mutable std::mutex mutex_;
    std::vector<Message> messages_;
};

#endif  // LOGO_TESTS_MQTT_HARNESS_H
