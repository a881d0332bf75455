// The real `logohost bridge` (and `panel --mqtt`) with Debian's mosquitto
// and two simulated controllers: what reaches the broker is what the
// controllers hold, sets go through the panel's checks, and the bridge's
// truth survives it being killed, the broker restarting, a controller
// going silent and an item leaving the screens file.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <httplib.h>
#include <nlohmann/json.hpp>

#include <memory>

#include "../host/host_process.h"  // kHost, kDriver
#include "mqtt_harness.h"
#include "sim/simulator.h"

namespace {

using Json = nlohmann::json;
using logosim::Table;
using Check = std::function<bool(const std::string&)>;

constexpr int kVW10Register = 5;
constexpr int kVW20Register = 10;
constexpr int kQ1Coil = 8192;

Json parsed(const std::string& payload) { return Json::parse(payload, nullptr, false); }

Check field(const char* key, const Json& value)
{
    return [=](const std::string& payload) {
        const Json json = parsed(payload);
        return json.is_object() && json.contains(key) && json[key] == value;
    };
}

Check is(const std::string& text)
{
    return [=](const std::string& payload) { return payload == text; };
}

bool anything(const std::string& payload) { return !payload.empty(); }

std::string topic(const std::string& var, const char* kind) { return "logohost/t/" + var + "/" + kind; }

class Bridge : public ::testing::Test {
protected:
    void SetUp() override
    {
        char dir[] = "/tmp/logohost-mqtt-XXXXXX";
        dir_ = mkdtemp(dir);
        chmod(dir, 0755);  // a broker started as root reads its password file as the user mosquitto
        broker_ = std::make_unique<Broker>(dir_);
        for (auto& sim : sims_) {
            sim = std::make_unique<logosim::Simulator>(logosim::SimOptions{});
            std::string error;
            ASSERT_TRUE(sim->start(&error)) << error;
        }
        writeScreens(true);
        peer_ = std::make_unique<Peer>(broker_->port());
        ASSERT_TRUE(peer_->connected());
    }

    void TearDown() override
    {
        stopBridge(SIGINT);
        peer_.reset();
        broker_.reset();
        std::filesystem::remove_all(dir_);
    }

    // Two controllers; the mill's speed only while `withSpeed`.
    void writeScreens(bool withSpeed)
    {
        std::ofstream(dir_ + "/screens.json") << R"({ "controllers": [
            { "station": 1, "name": "tank", "address": "127.0.0.1:)" << sims_[0]->port() << R"(" },
            { "station": 2, "name": "mill", "address": "127.0.0.1:)" << sims_[1]->port() << R"(" } ],
          "alarms": [ { "id": "level-high", "var": "VW10@1", "above": 90, "text": "Level high" } ],
          "screens": [ { "name": "main", "items": [
            { "var": "VW10@1", "label": "Level", "unit": "cm", "scale": 0.1, "decimals": 1 },
            { "var": "VW20@1", "label": "Setpoint", "unit": "cm", "scale": 0.5, "min": 0, "max": 100, "write": true },
            { "var": "Q1@1", "label": "Pump", "write": true }, { "var": "I1@2", "label": "Running" })"
                                             << (withSpeed ? R"(, { "var": "AM1@2", "unit": "rpm" })" : "")
                                             << "] } ] }";
    }

    void startBridge(std::vector<std::string> extra = {})
    {
        std::vector<std::string> args{kHost,       "bridge",  "--screens", dir_ + "/screens.json", "--mqtt",
                                      "127.0.0.1:" + std::to_string(broker_->port()),  "--mqtt-node", "t",
                                      "--data",    dir_ + "/data", "--driver", kDriver, "--timeout", "0.5",
                                      "--scan-period", "0.1"};
        args.insert(args.end(), extra.begin(), extra.end());
        pid_ = spawn(args, dir_ + "/bridge.log");
    }

    // Ctrl-C must end it cleanly (and a sanitizer's report would not).
    void stopBridge(int signal)
    {
        if (pid_ <= 0)
            return;
        std::string hung;
        const int status = stopProcess(pid_, signal, &hung);
        pid_ = 0;
        if (signal == SIGINT) {
            EXPECT_EQ(status, 0) << "the bridge did not end cleanly on Ctrl-C\n"
                                 << hung << "its output:\n"
                                 << fileText(dir_ + "/bridge.log");
        }
    }

    std::string dir_;
    std::unique_ptr<Broker> broker_;
    std::unique_ptr<logosim::Simulator> sims_[2];
    std::unique_ptr<Peer> peer_;
    pid_t pid_ = 0;
};

TEST_F(Bridge, DiscoveryDescribesEachItemOnItsControllersDevice)
{
    startBridge();
    const struct {
        const char *topic, *device;
        Json expected;  // fields as given; null: absent
    } rows[] = {
        {"sensor/t/VW10_1", "tank", {{"unit_of_measurement", "cm"}, {"suggested_display_precision", 1},
                                     {"command_topic", nullptr}}},
        {"number/t/VW20_1", "tank", {{"min", 0.0}, {"max", 100.0}, {"step", 0.5}, {"unit_of_measurement", "cm"},
                                     {"command_topic", topic("VW20_1", "set")}}},
        {"switch/t/Q1_1", "tank", {{"command_topic", topic("Q1_1", "set")}, {"payload_on", "ON"}}},
        {"binary_sensor/t/I1_2", "mill", {{"command_topic", nullptr}}},
        {"sensor/t/AM1_2", "mill", {{"unit_of_measurement", "rpm"}}},
    };
    ASSERT_TRUE(peer_->await(topic("AM1_2", "state"), anything));  // after its entry
    const Peer late(broker_->port());  // which the broker hands only what is retained
    for (const auto& row : rows) {
        SCOPED_TRACE(row.topic);
        Message entry;
        ASSERT_TRUE(late.await(std::string("homeassistant/") + row.topic + "/config", anything, 0, &entry));
        EXPECT_TRUE(entry.retained);
        const Json config = parsed(entry.payload);
        for (const auto& [key, value] : row.expected.items())
            EXPECT_EQ(config.contains(key) ? config[key] : Json(nullptr), value) << key;
        EXPECT_EQ(config["device"]["identifiers"], Json::array({std::string("logohost_t_") + row.device}));
        EXPECT_EQ(config["device"]["name"], row.device);
        EXPECT_EQ(config["availability"][0]["topic"], "logohost/t/status");
        EXPECT_EQ(config["state_topic"], config["availability"][1]["topic"]);
    }
}

TEST_F(Bridge, StatesFollowTheControllersAndSayWhenOneFallsSilent)
{
    startBridge();
    sims_[0]->setWord(1, Table::HoldingRegister, kVW10Register, 950);
    sims_[1]->setBit(2, Table::DiscreteInput, 0, true);
    Message state;
    ASSERT_TRUE(peer_->await(topic("VW10_1", "state"), field("value", 95.0), 0, &state));
    EXPECT_EQ(parsed(state.payload)["text"], "95.0");
    EXPECT_EQ(parsed(state.payload)["quality"], "ok");
    EXPECT_TRUE(peer_->await(topic("I1_2", "state"), field("text", "ON")));
    EXPECT_TRUE(peer_->await("logohost/t/alarm/level-high", field("state", "active")));

    const size_t mark = peer_->count();
    sims_[0]->pause();
    // Its request fails (no reply), and its station is switched off at once
    // after: a state sent in between may show either.
    const auto notAnswering = [](const std::string& payload) {
        return field("quality", "no-reply")(payload) || field("quality", "station-off")(payload);
    };
    EXPECT_TRUE(peer_->await(topic("VW10_1", "state"), notAnswering, mark, &state));
    EXPECT_EQ(parsed(state.payload)["value"], 95.0);  // the last value, said to be so
    EXPECT_TRUE(peer_->await("logohost/t/alarm/level-high", field("state", "unknown"), mark));
    sims_[1]->setBit(2, Table::DiscreteInput, 0, false);
    EXPECT_TRUE(peer_->await(topic("I1_2", "state"), field("text", "OFF"), mark));  // the other one is well
}

TEST_F(Bridge, SetsGoThroughThePanelsChecksAndAreAnswered)
{
    startBridge();
    ASSERT_TRUE(peer_->await("logohost/t/status", is("online")));
    const struct {
        const char *var, *payload, *outcome, *message;  // the message's start
    } rows[] = {
        {"VW20_1", "42.5", "done", "VW20@1 = 42.50 written"},
        {"Q1_1", "on", "done", "Q1@1 = ON written"},
        {"VW20_1", "100.5", "bad request", "value 100.5 for VW20@1 is out of range: expected 0 to 100"},
        {"Q1_1", "maybe", "bad request", "bad value \"maybe\" for Q1@1: a bit takes ON, OFF, true, false, 1 or 0"},
        {"VW10_1", "5", "not allowed", "VW10@1 is not writable on any screen of this panel"},
        {"I1_2", "ON", "not allowed", "I1@2 is an input and cannot be written"},
        {"VW30_1", "5", "unknown", "VW30_1 is no item of this bridge"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.var) + " " + row.payload);
        const size_t mark = peer_->count();
        peer_->publish(topic(row.var, "set"), row.payload);
        Message result;
        ASSERT_TRUE(peer_->await(topic(row.var, "result"), field("value", row.payload), mark, &result));
        const Json answer = parsed(result.payload);
        EXPECT_EQ(answer["outcome"], row.outcome);
        EXPECT_EQ(answer["ok"], std::string(row.outcome) == "done");
        EXPECT_EQ(answer["message"].get<std::string>().rfind(row.message, 0), 0u) << answer["message"];
    }
    EXPECT_EQ(sims_[0]->word(1, Table::HoldingRegister, kVW20Register), 85);
    EXPECT_TRUE(sims_[0]->bit(1, Table::Coil, kQ1Coil));
    EXPECT_EQ(sims_[0]->stats().writeRequests + sims_[1]->stats().writeRequests, 2u);
}

TEST_F(Bridge, KilledItGoesOfflineAndARetainedSetIsNotWrittenAgainOnReturn)
{
    startBridge();
    ASSERT_TRUE(peer_->await("logohost/t/status", is("online")));
    peer_->publish(topic("VW20_1", "set"), "10", true);
    ASSERT_TRUE(peer_->await(topic("VW20_1", "result"), field("ok", true)));
    size_t mark = peer_->count();
    stopBridge(SIGKILL);
    EXPECT_TRUE(peer_->await("logohost/t/status", is("offline"), mark));

    sims_[0]->setWord(1, Table::HoldingRegister, kVW20Register, 0);
    mark = peer_->count();
    startBridge();
    EXPECT_TRUE(peer_->await("logohost/t/status", is("online"), mark));
    EXPECT_TRUE(peer_->await(topic("VW20_1", "result"), field("outcome", "bad request"), mark));
    EXPECT_EQ(sims_[0]->word(1, Table::HoldingRegister, kVW20Register), 0);
}

TEST_F(Bridge, ABrokerRestartedEmptyGetsEverythingAgain)
{
    startBridge();
    sims_[0]->setWord(1, Table::HoldingRegister, kVW10Register, 77);
    ASSERT_TRUE(peer_->await(topic("VW10_1", "state"), field("value", 7.7)));
    peer_.reset();
    broker_->stop();
    broker_->start();
    ASSERT_TRUE(Peer(broker_->port()).await(topic("AM1_2", "state"), anything));  // the last the bridge sends
    const Peer after(broker_->port());
    Message state;
    EXPECT_TRUE(after.await(topic("VW10_1", "state"), field("value", 7.7), 0, &state));
    EXPECT_TRUE(state.retained);
    EXPECT_TRUE(after.await("homeassistant/sensor/t/VW10_1/config", anything));
    EXPECT_TRUE(after.await("logohost/t/status", is("online")));
}

TEST_F(Bridge, AnItemLeftOutOfTheScreensLosesItsRetainedEntries)
{
    startBridge();
    ASSERT_TRUE(peer_->await(topic("AM1_2", "state"), anything));
    stopBridge(SIGINT);
    writeScreens(false);
    const size_t mark = peer_->count();
    startBridge();
    EXPECT_TRUE(peer_->await("homeassistant/sensor/t/AM1_2/config", is(""), mark));
    EXPECT_TRUE(peer_->await(topic("AM1_2", "state"), is(""), mark));
    EXPECT_TRUE(Peer(broker_->port()).await("homeassistant/sensor/t/VW10_1/config", anything));
}

TEST_F(Bridge, ConnectsWithThePasswordFromItsFileAndSaysWhenRefused)
{
    const std::string passwords = dir_ + "/passwords";
    ASSERT_EQ(std::system(("mosquitto_passwd -c -b " + passwords + " plant s3cret-word").c_str()), 0);
    std::ofstream(dir_ + "/right") << "s3cret-word\n";
    std::ofstream(dir_ + "/wrong") << "guess\n";
    peer_.reset();
    broker_ = std::make_unique<Broker>(dir_, "allow_anonymous false\npassword_file " + passwords + "\n");
    startBridge({"--mqtt-user", "plant", "--mqtt-password-file", dir_ + "/wrong"});
    EXPECT_TRUE(fileSays(dir_ + "/bridge.log", "refused the connection: Connection Refused: not authorised"));
    stopBridge(SIGINT);
    peer_ = std::make_unique<Peer>(broker_->port(), "plant", "s3cret-word");
    startBridge({"--mqtt-user", "plant", "--mqtt-password-file", dir_ + "/right"});
    EXPECT_TRUE(peer_->await("logohost/t/status", is("online")));
}

// The panel's built-in screens on one controller: one device, and a set
// refused over MQTT is in the journal the panel shows.
TEST_F(Bridge, PanelPublishesBesideItsPagesAndJournalsSets)
{
    const int http = loopback(0);
    pid_ = spawn({kHost, "panel", "--plc", "127.0.0.1:" + std::to_string(sims_[0]->port()), "--listen",
                  "127.0.0.1:" + std::to_string(http), "--mqtt", "127.0.0.1:" + std::to_string(broker_->port()),
                  "--mqtt-node", "t", "--data", dir_ + "/data", "--driver", kDriver},
                 dir_ + "/bridge.log");
    Message entry;
    ASSERT_TRUE(peer_->await("homeassistant/switch/t/Q1/config", anything, 0, &entry));
    EXPECT_EQ(parsed(entry.payload)["device"]["identifiers"], Json::array({"logohost_t"}));
    peer_->publish(topic("Q1", "set"), "maybe");
    ASSERT_TRUE(peer_->await(topic("Q1", "result"), field("outcome", "bad request")));

    const httplib::Result journal = httplib::Client("127.0.0.1", http).Get("/api/journal?since=0");
    ASSERT_TRUE(journal);
    const Json entries = parsed(journal->body)["entries"];
    ASSERT_EQ(entries.size(), 1u) << journal->body;
    EXPECT_EQ(entries[0]["who"], "mqtt");
    EXPECT_EQ(entries[0]["subject"], "Q1");
    EXPECT_EQ(entries[0]["value"], "maybe");
    EXPECT_EQ(entries[0]["ok"], false);
}

}  // namespace
