// The machine's limit: a raw TCP ping-pong over loopback with frames of the
// same sizes as a register read (request and reply bytes), and a server that
// does nothing but answer. The server is a process of its own, as the
// simulator is, so both pay the same switches between processes.
//   pingpong FRAMES REQUEST_BYTES REPLY_BYTES
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <sys/wait.h>
#include <vector>

#include "round_trips.h"

namespace {

bool readFully(int fd, char* buffer, int size)
{
    for (int got = 0; got < size;) {
        const ssize_t n = recv(fd, buffer + got, size - got, 0);
        if (n <= 0)
            return false;
        got += static_cast<int>(n);
    }
    return true;
}

void noDelay(int fd)
{
    const int one = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::fprintf(stderr, "usage: pingpong FRAMES REQUEST_BYTES REPLY_BYTES\n");
        return 2;
    }
    const int frames = std::atoi(argv[1]), requestBytes = std::atoi(argv[2]), replyBytes = std::atoi(argv[3]);
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), length) != 0 || listen(listener, 1) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        std::perror("pingpong: listen");
        return 1;
    }
    const pid_t server = fork();
    if (server == 0) {
        const int fd = accept(listener, nullptr, nullptr);
        noDelay(fd);
        std::vector<char> request(requestBytes), reply(replyBytes, 1);
        while (readFully(fd, request.data(), requestBytes))
            send(fd, reply.data(), replyBytes, 0);
        close(fd);
        _exit(0);
    }
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), length) != 0) {
        std::perror("pingpong: connect");
        return 1;
    }
    noDelay(fd);
    std::vector<char> request(requestBytes, 0), reply(replyBytes);
    RoundTrips trips(frames);
    trips.start();
    for (int i = 0; i < frames; ++i) {
        const RoundTrips::Clock::time_point sent = RoundTrips::Clock::now();
        send(fd, request.data(), requestBytes, 0);
        if (!readFully(fd, reply.data(), replyBytes))
            return 1;
        trips.add(sent, RoundTrips::Clock::now());
    }
    trips.print("pingpong");
    close(fd);
    waitpid(server, nullptr, 0);
    close(listener);
    return 0;
}
