#include "host/commands/embedded_sim.h"

#include "sim/simulator.h"

namespace logohost {
namespace {

const char* const kLoopback = "127.0.0.1";

}  // namespace

EmbeddedSimulator::EmbeddedSimulator() = default;

EmbeddedSimulator::~EmbeddedSimulator() = default;

bool EmbeddedSimulator::start(std::string* error)
{
    logosim::SimOptions options;
    options.host = kLoopback;
    options.port = 0;
    options.animate = true;
    simulator_.reset(new logosim::Simulator(options));
    return simulator_->start(error);
}

std::string EmbeddedSimulator::host() const { return kLoopback; }

int EmbeddedSimulator::port() const { return simulator_ ? simulator_->port() : 0; }

int runSimulatorCommand(const std::vector<std::string>& args)
{
    std::vector<std::string> words{"logohost sim"};
    words.insert(words.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(&word[0]);
    argv.push_back(nullptr);
    return logosim::runSimulatorMain(static_cast<int>(words.size()), argv.data());
}

}  // namespace logohost
