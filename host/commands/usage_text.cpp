// The text of logohost --help, one section of it a string.
#include "host/commands/cli_options.h"

namespace logohost {
namespace {

const char* const kUsageIntro = R"(usage: logohost [OPTIONS] COMMAND ARGUMENTS...

Exchanges data with a Siemens LOGO! controller over Modbus TCP through the
driver liblogo_modbus_tcp.so. Without --plc it starts a built-in simulated
controller on a free loopback port.
)";

const char* const kUsageCommands = R"(Commands:
  watch VAR...          scan the variables cyclically and show them live
  read VAR...           read the variables once (one full scan) and print them
  write VAR=VALUE...    write values to the controller and wait for each result
  panel [--screens FILE] [--listen HOST:PORT] [--token TOKEN] [--read-only]
                        serve an operator panel to browsers and print its address
  bridge --mqtt HOST[:PORT] [--screens FILE] [--read-only]
                        publish the plant to an MQTT broker, with Home
                        Assistant's discovery (and serve Modbus clients with
                        --modbus-listen), until Ctrl-C
  sim [--listen HOST:PORT] [--animate] [--fault KIND[:every=N]...]...
                        run the simulated controller as a server (sim --help)
)";

const char* const kUsageVariables = R"(Variables (count :N, station @S with --stations):
  I1-I24  Q1-Q20  M1-M64  V0.0-V850.7 (byte.bit)  AI1-AI8  AQ1-AQ8  AM1-AM64
  VW0-VW848 and VD0-VD846 by even V byte number (VD: 32 bits, high word first)
  e.g. VW0:8  Q1:4  V10.3  AM5:2  VW0:4@2
Values: bits 0/1, on/off, true/false; words -32768..65535 or 0xFFFF; VD 32-bit.
  Several elements: VW0:3=1,2,3
)";

const char* const kUsageOptions = R"(Options:
  --plc HOST[:PORT]     the controller (port 502 by default; IPv6 as [ADDR]:PORT)
  --station N           Modbus unit identifier (default 1)
  --stations            several stations: variables carry @STATION
  --demote-after N      with --stations, switch a station off after N given-up
                        requests in a row (default 3)
  --demote-for SECONDS  ... for this long (default 10)
  --remote-mode         use the driver's remote-mode frames instead of Modbus
  --max-block N         most words in one request (1-125, default 64)
  --retries N           failed replies before a request is given up (default 2)
  --timeout SECONDS     reply time-out (default 1)
  --interval SECONDS    watch: display refresh / scan line period (default 1)
  --scan-period SECONDS watch, panel, bridge: one pass over the scanned variables
                        per period at most (default 0.4, a few frames a second,
                        which a LOGO! serves beside its other clients with
                        ease; 0: as fast as the link goes, for measurements)
  --duration SECONDS    watch, panel, bridge: stop after this long (default: until Ctrl-C)
  --format FORMAT       table (default), csv or jsonl
  --trace               every frame in hex on standard error
  --driver PATH         the driver library (default: beside logohost)
  --config FILE         options from a settings file, one a line without its
                        "--" ("plc 192.168.0.3"); the service reads
                        /etc/logohost/panel.conf
  --help                this text
)";

const char* const kUsagePanel = R"(Panel options:
  --screens FILE        the screens (JSON; see README.md); default: built-in
                        screens for the simulator
  --listen HOST[:PORT]  where browsers connect (default 127.0.0.1:8502; port 0:
                        any free port). Off loopback, changes need a token.
  --token TOKEN         the token changes need (default: none on loopback,
                        else generated and printed in the address)
  --read-only           no writes and no station switching, and no controls
  --data DIR            where the history is kept (trend samples, alarms, the
                        journal): default $XDG_STATE_HOME/logohost, else
                        ~/.local/state/logohost; /var/lib/logohost as a service
  --keep DURATION       how long the history keeps its data (default 30d)
  --max-viewers N       screens open in browsers at once (default 150): each
                        open screen holds one of the server's threads; a page
                        past the limit says so and tries again every 5 s
  The panel scans only the screens some browser shows (or a script polled in
  the last 10 s), plus the trended variables, always.
)";

const char* const kUsageModbus = R"(Modbus proxy options (panel and bridge; see README.md, "Sharing the connection"):
  --modbus-listen PORT|HOST:PORT
                        serve Modbus TCP clients through the host's connection
                        (a bare port listens on 127.0.0.1; HOST alone: port 502)
  --modbus-allow CIDR   accept clients from this network only (repeatable);
                        needed to listen off loopback
  --modbus-max-age SECONDS
                        answer a read from the scan's image when the scan read
                        it within this age (default: the scan period; 0: every
                        read goes to the controller)
  --modbus-max-clients N
                        clients at once (default 32); past it a client's first
                        request gets exception 0A and it is closed
  Writes are answered once the controller took them; --read-only refuses them
  with exception 01. A controller that does not answer gives exception 0B.
)";

const char* const kUsageMqtt = R"(MQTT options (bridge, and panel to publish beside its pages):
  --mqtt HOST[:PORT]    the broker (port 1883, 8883 with --mqtt-ca; IPv6 as
                        [ADDR]:PORT); the bridge's topics are logohost/NODE/...
  --mqtt-user NAME      the user name to connect with (default: anonymous)
  --mqtt-password-file FILE
                        the password, the file's first line
  --mqtt-ca FILE        TLS, the broker's certificate checked against this CA
  --mqtt-node NAME      the NODE of the topics and of the client id
                        logohost-NODE (default: this host's name)
  --screens, --read-only, --data, --keep, --scan-period and --duration apply
  to the bridge as to the panel; it keeps every screen scanned.
)";

const char* const kUsageExamples = R"(Examples:
  logohost watch VW0:4 AI1:2 Q1:4
  logohost --plc 192.168.0.3 read AM1:4 V10.3 --format csv
  logohost --plc 192.168.0.3 write VW0=1234 Q1=on VD4=-100000
  logohost --stations --plc 192.168.0.3 watch VW0:2@1 VW0:2@2 --demote-after 1
  logohost panel --plc 192.168.0.3 --screens pumps.json
  logohost bridge --plc 192.168.0.3 --screens pumps.json --mqtt broker.lan
  logohost sim --listen 127.0.0.1:5020 --animate --fault late:every=10:delay=1500
)";

}  // namespace

std::string usageText()
{
    // One text per section of --help.
    std::string text;
    for (const char* section : {kUsageIntro, kUsageCommands, kUsageVariables, kUsageOptions, kUsagePanel,
                                kUsageModbus, kUsageMqtt, kUsageExamples})
        text += std::string(section) + (section == kUsageExamples ? "" : "\n");
    return text;
}

}  // namespace logohost
