// The reference host's path, frame by frame: the driver loaded by file name,
// ComCommunication, the host's TCP link (one send, the reply read by its
// Modbus length), DataCom. The round trip is the whole step, driver included.
//   host_loop_bench DRIVER PORT FRAMES COUNT
#include <cstdio>
#include <cstdlib>

#include "host/binding/driver_api.h"
#include "host/link/tcp_link.h"
#include "round_trips.h"

namespace {

void noReadDone(intptr_t, int, int, int) {}
void noFail(QList<RW_VAR>*, int, int) {}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 5) {
        std::fprintf(stderr, "usage: host_loop_bench DRIVER PORT FRAMES COUNT\n");
        return 2;
    }
    const int port = std::atoi(argv[2]), frames = std::atoi(argv[3]), count = std::atoi(argv[4]);
    logohost::DriverApi api;
    std::string error;
    if (!logohost::loadDriver(argv[1], &api, &error)) {
        std::fprintf(stderr, "host_loop_bench: %s\n", error.c_str());
        return 1;
    }
    ComInfo info = ComInfo();
    info.maxBlockLength = 125;
    info.defaultStation = 1;
    info.retryLimit = 2;
    info.localLinkId = 1;
    api.setComInfo(&info);
    api.registerCallbacks(noReadDone, noFail);
    QList<HOSTVAR> vars;
    HOSTVAR var = HOSTVAR();
    var.area = AREA_VW;
    var.addressText = QStringLiteral("0");
    var.count = count;
    vars.append(var);
    api.rebuildReadList(&vars);

    logohost::Trace trace(false);
    logohost::TcpLink link("127.0.0.1", port, std::chrono::milliseconds(1000), trace);
    const std::atomic<bool> stop(false);
    RoundTrips trips(frames);
    trips.start();
    for (int i = 0; i < frames; ++i) {
        const RoundTrips::Clock::time_point begin = RoundTrips::Clock::now();
        const Protocol* p = api.nextFrame();
        logohost::Exchange exchange =
            link.exchange(p->frame.constData(), p->frameLength, logohost::ReplyShape{true, p->replyLength}, stop);
        if (api.takeReply(&exchange.reply, exchange.reply.size())->returnCode != RC_LOCAL_OK) {
            std::fprintf(stderr, "host_loop_bench: frame %d failed\n", i);
            return 1;
        }
        trips.add(begin, RoundTrips::Clock::now());
    }
    trips.print("host+driver");
    return 0;
}
