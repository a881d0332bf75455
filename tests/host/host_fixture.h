// A test of the real logohost against a simulator of its own: the
// simulator with the faults a test asks for, and the host pointed at it.
#ifndef LOGO_TESTS_HOST_FIXTURE_H
#define LOGO_TESTS_HOST_FIXTURE_H

#include <memory>

#include "host_process.h"
#include "sim/simulator.h"

class HostTest : public ::testing::Test {
protected:
    void startSimulator(std::vector<logosim::FaultSpec> faults = {})
    {
        logosim::SimOptions options;
        options.faults = std::move(faults);
        sim_ = std::make_unique<logosim::Simulator>(options);
        std::string error;
        ASSERT_TRUE(sim_->start(&error)) << error;
        plc_ = "127.0.0.1:" + std::to_string(sim_->port());
    }

    Exit host(std::vector<std::string> args, bool remote = false, const char* timeout = "0.3")
    {
        args.insert(args.begin(), {"--plc", plc_, "--driver", kDriver, "--timeout", timeout});
        if (remote)
            args.push_back("--remote-mode");
        return runHost(args);
    }

    std::unique_ptr<logosim::Simulator> sim_;
    std::string plc_;
};

#endif  // LOGO_TESTS_HOST_FIXTURE_H
