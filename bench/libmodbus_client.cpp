// The peer to beat: a plain libmodbus client reading the same registers in
// a loop from the same simulator.
//   libmodbus_client PORT FRAMES ADDRESS COUNT
#include <modbus.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "round_trips.h"

int main(int argc, char** argv)
{
    if (argc != 5) {
        std::fprintf(stderr, "usage: libmodbus_client PORT FRAMES ADDRESS COUNT\n");
        return 2;
    }
    const int port = std::atoi(argv[1]), frames = std::atoi(argv[2]);
    const int address = std::atoi(argv[3]), count = std::atoi(argv[4]);
    modbus_t* ctx = modbus_new_tcp("127.0.0.1", port);
    if (!ctx || modbus_connect(ctx) != 0) {
        std::fprintf(stderr, "libmodbus_client: cannot connect to 127.0.0.1:%d: %s\n", port, modbus_strerror(errno));
        return 1;
    }
    modbus_set_slave(ctx, 1);
    uint16_t registers[125];
    RoundTrips trips(frames);
    trips.start();
    for (int i = 0; i < frames; ++i) {
        const RoundTrips::Clock::time_point sent = RoundTrips::Clock::now();
        if (modbus_read_registers(ctx, address, count, registers) != count) {
            std::fprintf(stderr, "libmodbus_client: read failed: %s\n", modbus_strerror(errno));
            return 1;
        }
        trips.add(sent, RoundTrips::Clock::now());
    }
    trips.print("libmodbus");
    modbus_close(ctx);
    modbus_free(ctx);
    return 0;
}
