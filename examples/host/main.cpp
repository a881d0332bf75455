// The smallest complete host of liblogo_modbus_tcp.so: it loads the driver
// by path, hands it the settings and one screen of variables (VW0 and VW2),
// runs the communication loop over a TCP socket until the driver has read
// the whole screen once, and prints the values from the driver's image.
//
//   logo_example_host HOST PORT [DRIVER]
#include <arpa/inet.h>
#include <dlfcn.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "logo_modbus_tcp.h"

namespace {

const int kMbapLength = 6;     // Modbus TCP header up to and with its length field
const int kMaxExchanges = 100;  // a screen this small is read in a few frames

// Every function of the driver this host calls, resolved by its plain name.
struct Driver {
    decltype(&SetComInfo) setComInfo;
    decltype(&RegistCallBackFuncIntf) registerCallbacks;
    decltype(&ReCreatReadVarList) setScreen;
    decltype(&ComCommunication) nextFrame;
    decltype(&DataCom) takeReply;
    decltype(&GetRegisterData) getRegisterData;
};

template <typename Function>
bool resolve(void* handle, const char* name, Function* out)
{
    *out = reinterpret_cast<Function>(dlsym(handle, name));
    if (!*out)
        std::fprintf(stderr, "the driver lacks %s\n", name);
    return *out != 0;
}

bool loadDriver(const char* path, Driver* d)
{
    void* handle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        std::fprintf(stderr, "cannot load %s: %s\n", path, dlerror());
        return false;
    }
    return resolve(handle, "SetComInfo", &d->setComInfo) &&
           resolve(handle, "RegistCallBackFuncIntf", &d->registerCallbacks) &&
           resolve(handle, "ReCreatReadVarList", &d->setScreen) && resolve(handle, "ComCommunication", &d->nextFrame) &&
           resolve(handle, "DataCom", &d->takeReply) && resolve(handle, "GetRegisterData", &d->getRegisterData);
}

// Callbacks run inside DataCom, on the communication thread.
void onReadDone(intptr_t, int, int, int) {}
void onGiveUp(QList<RW_VAR>*, int, int) { std::fprintf(stderr, "a request was given up\n"); }

int connectTo(const char* host, int port)
{
    sockaddr_in address = sockaddr_in();
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    const int one = 1;
    const timeval timeout = {1, 0};  // a reply later than this counts as none
    if (fd < 0 || inet_pton(AF_INET, host, &address.sin_addr) != 1 ||
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one) != 0 ||
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout) != 0 ||
        connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        if (fd >= 0)
            close(fd);
        return -1;
    }
    return fd;
}

bool receiveExactly(int fd, char* into, int length)
{
    for (int got = 0; got < length;) {
        const ssize_t n = recv(fd, into + got, static_cast<size_t>(length - got), 0);
        if (n <= 0)
            return false;
        got += static_cast<int>(n);
    }
    return true;
}

// One Modbus TCP reply, its length taken from its own header; empty on a
// time-out or a closed connection, which the driver takes as no reply.
QByteArray receiveReply(int fd)
{
    QByteArray reply(kMbapLength, '\0');
    if (!receiveExactly(fd, reply.data(), kMbapLength))
        return QByteArray();
    const int rest = (static_cast<unsigned char>(reply[4]) << 8) | static_cast<unsigned char>(reply[5]);
    reply.resize(kMbapLength + rest);
    if (!receiveExactly(fd, reply.data() + kMbapLength, rest))
        return QByteArray();
    return reply;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s HOST PORT [DRIVER]\n", argv[0]);
        return 2;
    }
    const char* driverPath = argc > 3 ? argv[3] : LOGO_DRIVER_PATH;
    Driver driver;
    if (!loadDriver(driverPath, &driver))
        return 1;
    std::printf("driver: %s\n", driverPath);

    // The driver keeps this record and writes its counters and scanDone
    // into it, so it lives as long as the communication.
    static ComInfo settings = ComInfo();
    settings.maxBlockLength = 64;
    settings.defaultStation = 1;
    settings.retryLimit = 2;
    settings.localLinkId = 1;
    settings.writeMode = 2;
    driver.setComInfo(&settings);
    driver.registerCallbacks(onReadDone, onGiveUp);

    // One screen: VW0 and VW2, that is V words 0 and 1 from station 1.
    QList<HOSTVAR> screen;
    HOSTVAR words = HOSTVAR();
    words.area = AREA_VW;
    words.station = 1;
    words.addressText = QString::fromLatin1("0");
    words.count = 2;
    screen.append(words);
    driver.setScreen(&screen);

    int fd = connectTo(argv[1], std::atoi(argv[2]));
    if (fd < 0) {
        std::fprintf(stderr, "cannot connect to %s:%s\n", argv[1], argv[2]);
        return 1;
    }
    for (int i = 0; i < kMaxExchanges && !settings.scanDone; ++i) {
        Protocol* frame = driver.nextFrame();
        if (!frame) {
            usleep(10000);  // nothing to send now
            continue;
        }
        QByteArray reply;
        if (send(fd, frame->frame.constData(), static_cast<size_t>(frame->frameLength), MSG_NOSIGNAL) ==
            frame->frameLength)
            reply = receiveReply(fd);
        const RW_VAR* result = driver.takeReply(&reply, reply.size());
        if (result->returnCode != RC_LOCAL_OK)
            std::fprintf(stderr, "frame failed, driver code %d\n", result->returnCode);
        if (reply.isEmpty()) {
            // A late reply would pass for the answer to the next frame.
            close(fd);
            fd = connectTo(argv[1], std::atoi(argv[2]));
            if (fd < 0)
                return 1;
        }
    }
    close(fd);
    if (!settings.scanDone) {
        std::fprintf(stderr, "the screen was not read\n");
        return 1;
    }

    QByteArray data;  // two bytes per word, low byte first
    driver.getRegisterData(QString(), AREA_VW, QString::fromLatin1("0"), 1, data, 2);
    for (int k = 0; k < 2 && 2 * k + 1 < data.size(); ++k) {
        const int value = static_cast<unsigned char>(data[2 * k]) | (static_cast<unsigned char>(data[2 * k + 1]) << 8);
        std::printf("VW%d = %d\n", 2 * k, value);
    }
    return 0;
}
