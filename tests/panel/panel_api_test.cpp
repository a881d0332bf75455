// The real `logohost panel`, driven over HTTP as a script would, against
// the simulated controller: every refusal answers 4xx with its reason and
// sends nothing to the controller, and what is allowed reaches it.
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <limits>
#include <memory>
#include <regex>

#include <httplib.h>
#include <nlohmann/json.hpp>

#include "../host/host_process.h"
#include "sim/simulator.h"

namespace {

using Json = nlohmann::json;
using logosim::Table;

const std::string kApiScreens = LOGO_PANEL_TEST_DIR "/api_screens.json";
constexpr int kVW20Register = 10;
constexpr int kQ1Coil = 8192;
constexpr int kAttempts = 400;  // bounded waits: 400 x 25 ms

int64_t wallMs()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

struct Row {
    const char* name;
    const char* method;
    std::string path;
    std::string body;
    httplib::Headers headers;
    int status;
    std::string message;  // the start of the answer's "error"
};

class PanelApi : public ::testing::Test {
protected:
    // The panel with its own simulator; screens "" are the built-in ones.
    // Every panel of a test keeps its history in the test's own folder.
    void start(std::vector<std::string> extra, const std::string& screens = kApiScreens)
    {
        if (data_.empty()) {
            std::string folder = (std::filesystem::temp_directory_path() / "panel-api-XXXXXX").string();
            ASSERT_NE(mkdtemp(folder.data()), nullptr);
            data_ = folder;
        }
        logosim::SimOptions options;
        options.requestLog = [this](const std::string& line) {
            const std::lock_guard<std::mutex> lock(logMutex_);
            log_.push_back(line);
        };
        sim_ = std::make_unique<logosim::Simulator>(options);
        std::string error;
        ASSERT_TRUE(sim_->start(&error)) << error;
        std::vector<std::string> args{"panel", "--plc", "127.0.0.1:" + std::to_string(sim_->port()), "--driver",
                                      kDriver, "--listen", "127.0.0.1:0", "--timeout", "0.5", "--data", data_};
        if (!screens.empty())
            args.insert(args.end(), {"--screens", screens});
        args.insert(args.end(), extra.begin(), extra.end());
        out_ = startHost(args, "/dev/null");
        pid_ = std::stoi(readLine(out_));
        const std::string line = readLine(out_);
        std::smatch url;
        ASSERT_TRUE(std::regex_search(line, url, std::regex(R"(open http://127\.0\.0\.1:(\d+)/)"))) << line;
        port_ = std::stoi(url[1]);
        client_ = std::make_unique<httplib::Client>("127.0.0.1", port_);
    }

    // Ctrl-C; true when the panel ended cleanly.
    bool stop()
    {
        kill(pid_, SIGINT);
        const int status = pclose(out_);
        out_ = nullptr;
        return status == 0;
    }

    void TearDown() override
    {
        if (out_)
            EXPECT_TRUE(stop()) << "the panel did not end cleanly on Ctrl-C";
        if (!data_.empty())
            std::filesystem::remove_all(data_);
    }

    httplib::Result send(const char* method, const std::string& path, const std::string& body = "",
                         const httplib::Headers& headers = {})
    {
        if (std::string(method) == "GET")
            return client_->Get(path.c_str(), headers);
        return client_->Post(path.c_str(), headers, body, "application/json");
    }

    // Checks the status and the start of the message; true when both match.
    void expectAnswer(const httplib::Result& res, int status, const std::string& message)
    {
        ASSERT_TRUE(res) << "no answer: " << httplib::to_string(res.error());
        EXPECT_EQ(res->status, status) << res->body;
        const Json body = Json::parse(res->body, nullptr, false);
        const std::string text = body.is_object() && body.contains("error") ? body["error"].get<std::string>()
                                 : body.is_object() && body.contains("message") ? body["message"].get<std::string>()
                                                                                : res->body;
        EXPECT_EQ(text.substr(0, message.size()), message) << text;
    }

    Json get(const std::string& path)
    {
        const httplib::Result res = send("GET", path);
        return res && res->status == 200 ? Json::parse(res->body) : Json();
    }

    // A GET's answer once `done` holds for it, within the bounded wait.
    template <typename Done>
    Json waitFor(const std::string& path, Done done)
    {
        Json body;
        for (int attempt = 0; attempt < kAttempts; ++attempt) {
            if (done(body = get(path)))
                return body;
            std::this_thread::sleep_for(std::chrono::milliseconds(25));
        }
        ADD_FAILURE() << path << " never answered as awaited; last: " << body.dump();
        return body;
    }

    bool logged(const std::string& line)
    {
        const std::lock_guard<std::mutex> lock(logMutex_);
        return std::find(log_.begin(), log_.end(), line) != log_.end();
    }

    std::string origin() const { return "http://127.0.0.1:" + std::to_string(port_); }

    // The request log first: the simulator's thread writes to it until the
    // simulator, destroyed before it, has stopped.
    std::mutex logMutex_;
    std::vector<std::string> log_;
    std::unique_ptr<logosim::Simulator> sim_;
    std::unique_ptr<httplib::Client> client_;
    std::string data_;  // the history folder
    FILE* out_ = nullptr;
    pid_t pid_ = 0;
    int port_ = 0;
};

TEST_F(PanelApi, RefusalsAnswer4xxAndNothingReachesTheController)
{
    start({});
    const std::string write = R"({"var": "VW20", "value": 12.5})";
    const std::string read = R"({"vars": ["VW20"]})";
    std::string manyVars = R"({"vars": [)";
    for (int i = 0; i < 65; ++i)
        manyVars += std::string(i ? "," : "") + "\"VW20\"";
    manyVars += "]}";
    const httplib::Headers evil{{"Origin", "http://evil.example"}};
    // One row for each status an operator's refusal maps to; every check of
    // a value against its item is in the model test's table.
    const Row rows[] = {
        {"malformed JSON", "POST", "/api/write", R"({"var": "VW20", )", {}, 400, "malformed JSON: parse error at line 1"},
        {"not an object", "POST", "/api/write", "[1, 2]", {}, 400, "expected a JSON object"},
        {"no var", "POST", "/api/write", R"({"value": 1})", {}, 400, "\"var\" must be a variable's text"},
        {"value as text", "POST", "/api/write", R"({"var": "VW20", "value": "12"})", {}, 400,
         "\"value\" must be a number, or true/false for a bit"},
        {"not a variable", "POST", "/api/write", R"({"var": "VW21", "value": 1})", {}, 400,
         "bad variable \"VW21\": VW takes an even V byte number"},
        {"unknown variable", "POST", "/api/write", R"({"var": "VW30", "value": 1})", {}, 404,
         "VW30 is on no screen of this panel"},
        {"write to an analogue input", "POST", "/api/write", R"({"var": "AI1", "value": 1})", {}, 403,
         "AI1 is an input and cannot be written"},
        {"not writable on any screen", "POST", "/api/write", R"({"var": "VW0", "value": 1})", {}, 403,
         "VW0 is not writable on any screen of this panel"},
        {"below min", "POST", "/api/write", R"({"var": "VW20", "value": -1})", {}, 400,
         "value -1 for VW20 is out of range: expected 0 to 100"},
        {"body over the limit", "POST", "/api/write", std::string(5000, ' ') + write, {}, 413,
         "request body of 5030 bytes is over the limit of 4096"},
        {"another site's page", "POST", "/api/write", write, evil, 403,
         "refused: the request came from http://evil.example, not from this panel's pages"},
        {"cross-site fetch", "POST", "/api/write", write, {{"Sec-Fetch-Site", "cross-site"}}, 403,
         "refused: the request came from another site's page (Sec-Fetch-Site: cross-site)"},
        {"a name rebound to loopback", "POST", "/api/write", write, {{"Host", "evil.example"}}, 403,
         "this panel listens on loopback and answers only requests addressed to it there"},
        {"read of an unknown variable", "POST", "/api/read", R"({"vars": ["VW30"]})", {}, 404,
         "VW30 is on no screen of this panel"},
        {"read list not a list", "POST", "/api/read", R"({"vars": "VW20"})", {}, 400, "\"vars\" must be a list"},
        {"read of too many", "POST", "/api/read", manyVars, {}, 400, "\"vars\" must list 1 to 64 variables"},
        {"read from another site", "POST", "/api/read", read, evil, 403, "refused: the request came from"},
        {"unknown station", "POST", "/api/station", R"({"station": 9, "on": false})", {}, 404,
         "station 9 is on no screen of this panel"},
        {"station malformed", "POST", "/api/station", R"({"station": "1", "on": false})", {}, 400,
         "expected {\"station\": N, \"on\": true or false}"},
        {"station from another site", "POST", "/api/station", R"({"station": 1, "on": false})", evil, 403,
         "refused: the request came from"},
        {"ack malformed", "POST", "/api/alarms/ack", R"({"id": 5})", {}, 400, "expected {\"id\": \"ALARM-ID\"}"},
        {"ack from another site", "POST", "/api/alarms/ack", R"({"id": "nope"})", evil, 403, "refused: the request came from"},
        {"ack of no such alarm", "POST", "/api/alarms/ack", R"({"id": "nope"})", {}, 404, "there is no alarm \"nope\""},
        {"unknown screen", "GET", "/api/values?screen=nope", "", {}, 404, "no screen named \"nope\""},
        {"no trend", "GET", "/api/trend.csv?var=VW0", "", {}, 404, "no trended item has var \"VW0\""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        // Nothing is on screen and nothing is trended: any request at all
        // would be one the refused call sent.
        const logosim::SimStats before = sim_->stats();
        expectAnswer(send(row.method, row.path, row.body, row.headers), row.status, row.message);
        const httplib::Result status = send("GET", "/api/status");
        ASSERT_TRUE(status) << "the panel stopped answering";
        EXPECT_EQ(status->status, 200);
        EXPECT_EQ(sim_->stats().requests, before.requests);
    }
    EXPECT_EQ(Json::parse(send("GET", "/api/status")->body)["stations"][0]["on"], true);
}

TEST_F(PanelApi, WritesReachTheControllerAndReadNowReadsIt)
{
    start({});
    const httplib::Headers ownPage{{"Origin", origin()}, {"Sec-Fetch-Site", "same-origin"}};
    expectAnswer(send("POST", "/api/write", R"({"var": "VW20", "value": 43.2})", ownPage), 200, "VW20 = 43.2 written");
    EXPECT_EQ(sim_->word(1, Table::HoldingRegister, kVW20Register), 432);
    expectAnswer(send("POST", "/api/write", R"({"var": "q1", "value": true})"), 200, "q1 = ON written");
    EXPECT_TRUE(sim_->bit(1, Table::Coil, kQ1Coil));
    EXPECT_EQ(sim_->stats().writeRequests, 2u);

    sim_->setWord(1, Table::HoldingRegister, 0, 1234);  // VW0
    sim_->setWord(1, Table::InputRegister, 0, 77);     // AI1
    const httplib::Result read = send("POST", "/api/read", R"({"vars": ["VW0", "AI1"]})", ownPage);
    expectAnswer(read, 200, "read 2 variables");
    const Json items = Json::parse(read->body)["items"];
    EXPECT_EQ(items[0]["text"], "1234");
    EXPECT_EQ(items[1]["text"], "77");
    EXPECT_EQ(items[1]["state"], "ok");
    EXPECT_TRUE(logged("unit 1 function 4 address 0 quantity 1")) << "no one-shot read of AI1";
}

TEST_F(PanelApi, PollingScansTheScreenAndNoOther)
{
    start({});
    sim_->setWord(1, Table::HoldingRegister, 528, 5);  // AM1, on the other screen
    const httplib::Result values = send("GET", "/api/values?screen=main");
    ASSERT_TRUE(values);
    EXPECT_EQ(values->status, 200);
    const Json answer = Json::parse(values->body);
    for (const Json& item : answer["items"])
        EXPECT_EQ(item["state"], "ok") << item.dump();  // the first poll waited for its screen's reads
    const Json scan = Json::parse(send("GET", "/api/status")->body)["scan"];
    EXPECT_EQ(scan["screens"], Json::array({"main"}));
    EXPECT_FALSE(logged("unit 1 function 3 address 528 quantity 1")) << "the screen nobody looks at was scanned";
}

TEST_F(PanelApi, TokenGuardsChanges)
{
    const std::string token = "Tok3n-for-tests";
    start({"--token", token});
    const std::string write = R"({"var": "VW20", "value": 1})";
    const std::string needed = "this panel needs its token for changes";
    expectAnswer(send("POST", "/api/write", write), 401, needed);
    expectAnswer(send("POST", "/api/write", write, {{"Authorization", "Bearer wrong-token"}}), 401, needed);
    expectAnswer(send("POST", "/api/read", R"({"vars": ["VW20"]})"), 401, needed);
    expectAnswer(send("POST", "/api/alarms/ack", R"({"id": "nope"})"), 401, needed);
    EXPECT_EQ(sim_->stats().writeRequests, 0u);
    EXPECT_EQ(Json::parse(send("GET", "/api/screens")->body)["canWrite"], false);

    expectAnswer(send("POST", "/api/write", write, {{"Authorization", "Bearer " + token}}), 200, "VW20 = 1.0 written");
    const httplib::Result page = send("GET", "/?token=" + token);
    ASSERT_TRUE(page);
    const std::string cookie = page->get_header_value("Set-Cookie");
    EXPECT_EQ(cookie, "logohost_token=" + token + "; Path=/; HttpOnly; SameSite=Strict");
    const httplib::Headers withCookie{{"Cookie", cookie.substr(0, cookie.find(';'))}};
    EXPECT_EQ(Json::parse(send("GET", "/api/screens", "", withCookie)->body)["canWrite"], true);
    expectAnswer(send("POST", "/api/write", R"({"var": "VW20", "value": 2})", withCookie), 200, "VW20 = 2.0 written");
    EXPECT_EQ(sim_->stats().writeRequests, 2u);
}

TEST_F(PanelApi, ReadOnlyPanelHasNoWritePath)
{
    start({"--read-only"});
    expectAnswer(send("POST", "/api/write", R"({"var": "VW20", "value": 1})"), 403,
                 "this panel is read-only (started with --read-only)");
    expectAnswer(send("POST", "/api/station", R"({"station": 1, "on": false})"), 403,
                 "this panel is read-only (started with --read-only)");
    expectAnswer(send("POST", "/api/alarms/ack", R"({"id": "nope"})"), 403,
                 "this panel is read-only (started with --read-only)");
    const Json screens = Json::parse(send("GET", "/api/screens")->body);
    EXPECT_EQ(screens["readOnly"], true);
    EXPECT_EQ(screens["canWrite"], false);
    EXPECT_EQ(sim_->stats().writeRequests, 0u);
    expectAnswer(send("POST", "/api/read", R"({"vars": ["VW20"]})"), 200, "read 1 variable");
}

// A panel never claims what it has not: a second one on a port in use
// exits 1 saying so, and values the controller stopped sending are not ok.
TEST_F(PanelApi, NeitherABusyPortNorASilentControllerIsPassedOffAsGood)
{
    start({});
    const std::string address = "127.0.0.1:" + std::to_string(port_);
    const Exit second = runHost({"panel", "--plc", "127.0.0.1:" + std::to_string(sim_->port()), "--driver", kDriver,
                                 "--listen", address, "--data", data_ + "/second", "--duration", "5"});
    EXPECT_EQ(second.code, 1);
    EXPECT_NE(second.err.find(address + " is in use"), std::string::npos) << second.err;

    auto aiState = [](const Json& values) { return values.is_object() ? values["items"][3]["stateClass"] : Json(); };
    waitFor("/api/values?screen=main", [&](const Json& v) { return aiState(v) == "ok"; });
    sim_->setFaults({logosim::FaultSpec{logosim::FaultKind::Silent}});
    const Json values = waitFor("/api/values?screen=main", [&](const Json& v) { return aiState(v) != "ok"; });
    EXPECT_TRUE(aiState(values) == "stale" || aiState(values) == "no-reply") << values.dump();
    const Json link = waitFor("/api/status", [](const Json& s) { return s.is_object() && s["link"]["link"]["state"] != "ok"; });
    EXPECT_EQ(link["link"]["link"]["state"], "not answering") << link.dump();
}

TEST_F(PanelApi, TrendDownloadsAsCsv)
{
    start({}, "");
    std::vector<std::string> lines;
    for (int attempt = 0; attempt < kAttempts && lines.size() < 3; ++attempt) {
        std::this_thread::sleep_for(std::chrono::milliseconds(25));
        const httplib::Result csv = send("GET", "/api/trend.csv?var=AI1");
        ASSERT_TRUE(csv);
        ASSERT_EQ(csv->status, 200);
        EXPECT_EQ(csv->get_header_value("Content-Disposition"), "attachment; filename=\"trend-AI1.csv\"");
        std::istringstream text(csv->body);
        lines.clear();
        for (std::string line; std::getline(text, line);)
            lines.push_back(line);
    }
    ASSERT_GE(lines.size(), 3u) << "the trend gathered no points";
    EXPECT_EQ(lines[0], "time,\"Tank level (%)\"");
    EXPECT_TRUE(std::regex_match(lines[1], std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3},\d+\.\d)"))) << lines[1];
}

// What the operator did and the plant did outlive the panel: the next one on
// the same history folder finds the journal, the alarm events and the
// acknowledgement, and the trend; a range comes in at most the spans asked for.
TEST_F(PanelApi, HistorySurvivesARestart)
{
    start({}, "");  // the built-in screens: AI1 trended, and AI2 at 0 raises "pressure-low"
    sim_->setWord(1, Table::InputRegister, 0, 420);  // AI1, 42.0 %
    const std::string since = std::to_string(wallMs());
    waitFor("/api/alarms", [](const Json& a) { return a.is_object() && a["counts"]["active"] == 1; });
    const std::string ack = "/api/alarms/ack", write = "/api/write";
    const Row actions[] = {
        {"never raised", "POST", ack, R"({"id": "level-high"})", {}, 409, "alarm level-high has nothing to acknowledge"},
        {"raised", "POST", ack, R"({"id": "pressure-low"})", {}, 200, "alarm pressure-low acknowledged"},
        {"acknowledged before", "POST", ack, R"({"id": "pressure-low"})", {}, 409, "alarm pressure-low has nothing"},
        {"write", "POST", write, R"({"var": "VW20", "value": 12.5})", {}, 200, "VW20 = 12.5 written"},
        {"refused write", "POST", write, R"({"var": "VW20", "value": 100.1})", {}, 400, "value 100.1 for VW20"},
    };
    for (const Row& row : actions) {
        SCOPED_TRACE(row.name);
        expectAnswer(send(row.method, row.path, row.body), row.status, row.message);
    }
    const std::string journal = "/api/journal?since=" + since;
    const Json entries = get(journal)["entries"];
    Json done = Json::array();
    for (const Json& entry : entries)
        done.push_back({entry["kind"], entry["who"], entry["subject"], entry["value"], entry["ok"]});
    EXPECT_EQ(done, Json::parse(R"([["ack", "127.0.0.1", "level-high", "", false],
        ["ack", "127.0.0.1", "pressure-low", "", true], ["ack", "127.0.0.1", "pressure-low", "", false],
        ["write", "127.0.0.1", "VW20", "12.5", true], ["write", "127.0.0.1", "VW20", "100.1", false]])"));
    const std::string trend = "/api/trend?var=AI1&from=" + since + "&points=";
    const auto before = [](int64_t ms) {
        return [ms](const Json& t) {
            return t.is_object() && std::any_of(t["spans"].begin(), t["spans"].end(), [ms](const Json& s) {
                return s[0].get<int64_t>() < ms && s[1] == 42.0 && s[2] == 42.0;
            });
        };
    };
    // A sample of 42.0 taken at all; its time is the scan's, which may be
    // after the actions above on a quick machine.
    waitFor(trend + "1000", before(std::numeric_limits<int64_t>::max()));
    const Json alarms = get("/api/alarms");
    EXPECT_EQ(alarms.at("active").at(0)["acknowledgedBy"], "127.0.0.1");
    ASSERT_TRUE(stop()) << "the panel did not end cleanly on Ctrl-C";
    const int64_t stopped = wallMs();

    start({}, "");  // a new controller: AI1 reads 0 from now on
    EXPECT_TRUE(before(stopped)(get(trend + "1000"))) << "no span of 42.0 from before the restart";
    const auto startsWith = [](const Json& all, const Json& first) {
        return all.size() >= first.size() && Json(all.begin(), all.begin() + first.size()) == first;
    };
    EXPECT_TRUE(startsWith(get(journal)["entries"], entries)) << "the journal from before is gone";
    const Json after = waitFor("/api/alarms", [](const Json& a) { return a.is_object() && a["counts"]["unknown"] == 0; });
    EXPECT_TRUE(startsWith(after["history"], alarms["history"])) << "the alarm events from before are gone";
    EXPECT_EQ(after["counts"]["unacknowledged"], 0) << "the acknowledgement did not survive";
    for (const char* key : {"id", "raisedAt", "acknowledgedBy", "acknowledgedAt"})
        EXPECT_EQ(after.at("active").at(0)[key], alarms["active"][0][key]) << key;
    for (const size_t points : {1, 2, 7, 100}) {
        const size_t spans = get(trend + std::to_string(points))["spans"].size();
        EXPECT_TRUE(spans >= 1 && spans <= points) << spans << " spans for at most " << points;
    }
}

}  // namespace
