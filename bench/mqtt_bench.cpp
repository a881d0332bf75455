// The MQTT bridge under load: 100 words of a simulated controller, each
// changed every 10 ms, published by the real `logohost bridge` to Debian's
// mosquitto on loopback. For each scan period: the state messages a second
// that reach a subscriber, the CPU of the bridge (its scan included) and of
// the broker, and the time from a change in the controller's memory to its
// message at the subscriber. A first row with the values still shows what
// the scan alone costs. Probes change one word at random moments, so that
// the wait for the next pass is part of their latency as it is in a plant.
//   mqtt_bench LOGOHOST DRIVER [SECONDS]
#include <mosquitto.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include "sim/simulator.h"
#include "tests/mqtt/mqtt_harness.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kWords = 100;
constexpr std::chrono::milliseconds kChangeEvery{10};
constexpr int kProbes = 40;
constexpr int kLeastGapMs = 20;  // between probes, plus up to one slowest scan period
constexpr int kGapSpreadMs = 500;
constexpr std::chrono::seconds kProbeLimit{5};
constexpr const char* kProbeTopic = "logohost/b/VW0/state";

// Counts state messages and notes when each value of the probe arrived.
class Subscriber {
public:
    explicit Subscriber(int port)
    {
        mosq_ = mosquitto_new(nullptr, true, this);
        mosquitto_message_callback_set(mosq_, [](mosquitto*, void* self, const mosquitto_message* m) {
            static_cast<Subscriber*>(self)->take(m);
        });
        mosquitto_connect(mosq_, "127.0.0.1", port, 30);
        mosquitto_subscribe(mosq_, nullptr, "logohost/b/+/state", 0);
        mosquitto_loop_start(mosq_);
    }
    ~Subscriber()
    {
        mosquitto_disconnect(mosq_);
        mosquitto_loop_stop(mosq_, false);
        mosquitto_destroy(mosq_);
    }
    uint64_t messages() const { return messages_; }
    // When the probe's state with this value arrived; false past the limit.
    bool arrival(int value, Clock::time_point* at)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        return seen_.wait_for(lock, kProbeLimit, [&] { return arrivals_.count(value) > 0; }) &&
               (*at = arrivals_[value], true);
    }

private:
    mosquitto* mosq_;
    std::atomic<uint64_t> messages_{0};
    std::mutex mutex_;
    std::condition_variable seen_;
    std::map<int, Clock::time_point> arrivals_;

    void take(const mosquitto_message* m)
    {
        const Clock::time_point now = Clock::now();
        ++messages_;
        if (std::string(m->topic) != kProbeTopic)
            return;
        const auto json = nlohmann::json::parse(static_cast<const char*>(m->payload),
                                                static_cast<const char*>(m->payload) + m->payloadlen, nullptr, false);
        if (!json.is_object() || !json["value"].is_number())
            return;
        const std::lock_guard<std::mutex> lock(mutex_);
        arrivals_.emplace(json["value"].get<int>(), now);
        seen_.notify_all();
    }
};

// Changes every word every 10 ms (none while still); the probe's word only
// while not probing.
class Writer {
public:
    Writer(logosim::Simulator& sim, bool still) : still_(still), sim_(sim), thread_([this] { run(); }) {}
    ~Writer()
    {
        stop_ = true;
        thread_.join();
    }
    std::atomic<bool> probing{false};

private:
    const bool still_;
    logosim::Simulator& sim_;
    std::atomic<bool> stop_{false};
    std::thread thread_;

    void run()
    {
        for (uint16_t tick = 0; !stop_; ++tick, std::this_thread::sleep_for(kChangeEvery))
            for (int word = probing ? 1 : 0; word < kWords && !still_; ++word)
                sim_.setWord(1, logomap::Table::HoldingRegister, word, static_cast<uint16_t>(tick % 500 + word));
    }
};

double cpuSeconds(pid_t pid)
{
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string field;
    for (int f = 1; f <= 13 && stat >> field; ++f) {
    }
    long user = 0, system = 0;
    stat >> user >> system;
    return static_cast<double>(user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

std::string writeScreens(const std::string& dir)
{
    std::string items;
    for (int word = 0; word < kWords; ++word)
        items += std::string(word ? "," : "") + "{\"var\": \"VW" + std::to_string(2 * word) + "\"}";
    const std::string path = dir + "/screens.json";
    std::ofstream(path) << "{\"screens\": [{\"name\": \"all\", \"items\": [" << items << "]}]}";
    return path;
}

// Milliseconds from each probe's change in memory to its message.
std::vector<double> probe(logosim::Simulator& sim, Writer& writer, Subscriber& subscriber)
{
    writer.probing = true;
    std::mt19937 random(1);
    std::uniform_int_distribution<int> gap(kLeastGapMs, kLeastGapMs + kGapSpreadMs);
    std::vector<double> latencies;
    for (int p = 0; p < kProbes; ++p) {
        const int value = 1000 + p;
        std::this_thread::sleep_for(std::chrono::milliseconds(gap(random)));
        const Clock::time_point changed = Clock::now();
        sim.setWord(1, logomap::Table::HoldingRegister, 0, static_cast<uint16_t>(value));
        Clock::time_point arrived;
        if (subscriber.arrival(value, &arrived))
            latencies.push_back(std::chrono::duration<double, std::milli>(arrived - changed).count());
    }
    writer.probing = false;
    std::sort(latencies.begin(), latencies.end());
    return latencies;
}

struct Row {
    const char* period;
    bool still;
};

void measure(const std::vector<std::string>& bridgeArgs, Row row, int seconds, logosim::Simulator& sim,
             const Broker& broker, const std::string& dir)
{
    std::vector<std::string> args = bridgeArgs;
    args.insert(args.end(), {"--scan-period", row.period});
    Subscriber subscriber(broker.port());
    Writer writer(sim, row.still);
    const pid_t bridge = spawn(args, dir + "/bridge.log");
    std::this_thread::sleep_for(std::chrono::seconds(2));  // connected, first states out
    const uint64_t before = subscriber.messages();
    const double bridgeBefore = cpuSeconds(bridge);
    const double brokerBefore = cpuSeconds(broker.pid());
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    const double rate = static_cast<double>(subscriber.messages() - before) / seconds;
    const double bridgeCpu = (cpuSeconds(bridge) - bridgeBefore) / seconds * 100;
    const double brokerCpu = (cpuSeconds(broker.pid()) - brokerBefore) / seconds * 100;
    const std::vector<double> ms = probe(sim, writer, subscriber);
    stopProcess(bridge, SIGINT);
    const auto at = [&](double q) { return ms.empty() ? -1.0 : ms[static_cast<size_t>(q * (ms.size() - 1))]; };
    std::printf("%-4s %-9s %11.0f %10.1f%% %10.1f%% %8.1f %8.1f %8.1f %5zu/%d\n", row.period,
                row.still ? "still" : "changing", rate, bridgeCpu, brokerCpu, at(0.5), at(0.95),
                ms.empty() ? -1.0 : ms.back(), ms.size(), kProbes);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::fprintf(stderr, "usage: mqtt_bench LOGOHOST DRIVER [SECONDS]\n");
        return 2;
    }
    const int seconds = argc > 3 ? std::max(1, std::atoi(argv[3])) : 5;
    char dirTemplate[] = "/tmp/logohost-mqtt-bench-XXXXXX";
    const std::string dir = mkdtemp(dirTemplate);
    mosquitto_lib_init();
    Broker broker(dir);
    logosim::Simulator sim(logosim::SimOptions{});
    std::string error;
    if (!sim.start(&error)) {
        std::fprintf(stderr, "mqtt_bench: %s\n", error.c_str());
        return 1;
    }
    const std::vector<std::string> args{argv[1], "bridge", "--plc", "127.0.0.1:" + std::to_string(sim.port()),
                                        "--screens", writeScreens(dir), "--mqtt",
                                        "127.0.0.1:" + std::to_string(broker.port()), "--mqtt-node", "b",
                                        "--data", dir + "/data", "--driver", argv[2]};
    std::printf("%d words, each changed every %lld ms; %d s per row, %d latency probes\n\n", kWords,
                static_cast<long long>(kChangeEvery.count()), seconds, kProbes);
    std::printf("%-4s %-9s %11s %11s %11s %8s %8s %8s %7s\n", "scan", "values", "messages/s", "bridge CPU",
                "broker CPU", "p50 ms", "p95 ms", "max ms", "arrived");
    for (const Row row : {Row{"0", true}, Row{"0", false}, Row{"0.1", false}, Row{"0.5", false}})
        measure(args, row, seconds, sim, broker, dir);
    std::filesystem::remove_all(dir);
    return 0;
}
