// The simulated controller inside logohost: the default when no --plc is
// given, and the `sim` subcommand.
#ifndef LOGOHOST_EMBEDDED_SIM_H
#define LOGOHOST_EMBEDDED_SIM_H

#include <memory>
#include <string>
#include <vector>

namespace logosim {
class Simulator;
}

namespace logohost {

class EmbeddedSimulator {
public:
    EmbeddedSimulator();
    ~EmbeddedSimulator();
    // A moving controller (animated inputs) on a free loopback port.
    bool start(std::string* error);
    std::string host() const;
    int port() const;

private:
    std::unique_ptr<logosim::Simulator> simulator_;
};

// `logohost sim ARGS...`
int runSimulatorCommand(const std::vector<std::string>& args);

}  // namespace logohost

#endif  // LOGOHOST_EMBEDDED_SIM_H
