#include "host/panel/panel_server.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <limits>
#include <mutex>
#include <thread>

#include <httplib.h>

#include "common/endpoint.h"
#include "host/embedded_file.h"
#include "host/model/json_fields.h"
#include "host/notation/time_text.h"
#include "host/panel/event_stream.h"
#include "host/panel/http_security.h"
#include "host/panel/panel_views.h"

namespace logohost {

using httplib::Request;
using httplib::Response;

struct PanelServer::Context {
    PlantModel& model;
    OperatorActions& actions;
    AlarmBoard& alarms;
    HistoryStore& history;
    const ServerSettings settings;
    std::atomic<size_t> streams{0};
    std::atomic<bool> stopping{false};
    std::mutex runMutex{};  // orders run()'s start against stop()
    bool runStarted = false;
    std::atomic<bool> runEnded{false};
    int port = 0;
    int listenSocket = -1;  // the last socket httplib set up, the one it bound
};

namespace {

constexpr int kAcceptQueue = 128;

using Context = PanelServer::Context;

constexpr time_t kKeepAliveSeconds = 2;
constexpr int kDefaultTrendPoints = 600;    // a chart's width in points, about
constexpr size_t kJournalPage = 500;        // entries in one answer; ask again from the last
constexpr size_t kAlarmHistory = 200;       // alarm changes in one answer

// Nothing but the panel itself: no script, style, image or connection to
// any other site, and no framing by one.
const char* const kContentPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; connect-src 'self'; "
    "base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

const char* contentTypeOf(const std::string& name)
{
    const auto endsWith = [&name](const std::string& suffix) {
        return name.size() >= suffix.size() && name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0;
    };
    if (endsWith(".html"))
        return "text/html; charset=utf-8";
    if (endsWith(".css"))
        return "text/css; charset=utf-8";
    if (endsWith(".js"))
        return "text/javascript; charset=utf-8";
    return "application/octet-stream";
}

int httpStatus(Outcome outcome)
{
    switch (outcome) {
    case Outcome::Done: return 200;
    case Outcome::BadRequest: return 400;
    case Outcome::UnknownVariable: return 404;
    case Outcome::NotAllowed: return 403;
    case Outcome::StationOff:
    case Outcome::Replaced:
    case Outcome::NothingToDo: return 409;
    case Outcome::ControllerFailed: return 502;
    case Outcome::TimedOut: return 504;
    }
    return 500;
}

void answer(Response& res, int status, const Json& body)
{
    res.status = status;
    res.set_header("Cache-Control", "no-store");
    res.set_content(body.dump(), "application/json");
}

void refuse(Response& res, int status, const std::string& message) { answer(res, status, errorJson(message)); }

void answerAction(Response& res, const ActionResult& result)
{
    if (result.outcome == Outcome::Done)
        answer(res, 200, {{"ok", true}, {"message", result.message}});
    else
        refuse(res, httpStatus(result.outcome), result.message);
}

// The body as a JSON object; false after answering why it is not one.
bool parseBody(const Request& req, Response& res, Json* out)
{
    try {
        *out = Json::parse(req.body);
    } catch (const std::exception& e) {
        refuse(res, 400, "malformed JSON: " + json_fields::jsonErrorText(e));
        return false;
    }
    if (!out->is_object()) {
        refuse(res, 400, "expected a JSON object");
        return false;
    }
    return true;
}

bool hasToken(const Context& c, const Request& req)
{
    return c.settings.token.empty() ||
           tokenMatches(c.settings.token, req.get_header_value("Authorization"), req.get_header_value("Cookie"));
}

// A change must come from this panel's pages or a script, with the token
// where one is needed: the one check every changing request passes.
bool mayChange(const Context& c, const Request& req, Response& res)
{
    std::string why;
    if (!isSameOrigin(req.get_header_value("Origin"), req.get_header_value("Sec-Fetch-Site"),
                      req.get_header_value("Host"), &why)) {
        refuse(res, 403, "refused: " + why);
        return false;
    }
    if (!hasToken(c, req)) {
        refuse(res, 401, "this panel needs its token for changes: open the address logohost printed "
                         "(with ?token=), or send Authorization: Bearer TOKEN");
        return false;
    }
    return true;
}

int screenOf(const Context& c, const Request& req, Response& res)
{
    const int screen = c.model.findScreen(req.get_param_value("screen"));
    if (screen < 0)
        refuse(res, req.has_param("screen") ? 404 : 400,
               req.has_param("screen") ? "no screen named \"" + req.get_param_value("screen") + "\""
                                       : "give the screen: ?screen=NAME");
    return screen;
}

int trendOf(const Context& c, const Request& req, Response& res)
{
    const int trend = c.model.findTrend(req.get_param_value("var"));
    if (trend < 0)
        refuse(res, 404, "no trended item has var \"" + req.get_param_value("var") + "\"");
    return trend;
}

int64_t nowMs(const Context& c) { return c.model.session().clock().wallMs(); }

Json status(const Context& c)
{
    return statusJson(c.model, c.actions.readOnly(),
                      ServerFigures{c.streams.load(), c.settings.streamLimit, c.alarms.counts(), c.history.health(),
                                    c.settings.historyDirectory});
}

// A time parameter: ISO 8601 ("2026-11-24T03:24:42Z") or milliseconds since
// the epoch; false after answering why it is neither.
bool timeParam(const Request& req, Response& res, const char* name, int64_t fallback, int64_t* out)
{
    *out = fallback;
    if (!req.has_param(name))
        return true;
    const std::string text = req.get_param_value(name);
    char* end = nullptr;
    const long long ms = std::strtoll(text.c_str(), &end, 10);
    if (!text.empty() && *end == '\0') {
        *out = ms;
        return true;
    }
    if (parseIsoTime(text, out))
        return true;
    refuse(res, 400, std::string("\"") + name + "\" must be a time like 2026-11-24T03:24:42Z or milliseconds since 1970");
    return false;
}

// ---- pages -----------------------------------------------------------------

// A page opened with ?token=... leaves the token in a cookie that only this
// panel's own requests carry, so its controls work from then on.
void page(Context& c, const Request& req, Response& res)
{
    const EmbeddedFile* content = findPanelFile("www/panel.html");
    if (!c.settings.token.empty() && req.has_param("token") &&
        tokenMatches(c.settings.token, "Bearer " + req.get_param_value("token"), ""))
        res.set_header("Set-Cookie",
                       std::string(kTokenCookie) + "=" + c.settings.token + "; Path=/; HttpOnly; SameSite=Strict");
    res.set_content(content->data, content->size, contentTypeOf("panel.html"));
}

void screenPage(Context& c, const Request& req, Response& res)
{
    page(c, req, res);
    if (c.model.findScreen(req.matches[1]) < 0)
        res.status = 404;  // the page says so too, from /api/screens
}

void asset(Context&, const Request& req, Response& res)
{
    const std::string name = "www/" + std::string(req.matches[1]);
    const EmbeddedFile* content = findPanelFile(name);
    res.set_header("Cache-Control", "no-cache");
    res.set_content(content->data, content->size, contentTypeOf(name));
}

// ---- reading ---------------------------------------------------------------

void getScreens(Context& c, const Request& req, Response& res)
{
    answer(res, 200, screensJson(c.model.screens(), hasToken(c, req), c.actions.readOnly()));
}

void getValues(Context& c, const Request& req, Response& res)
{
    const int screen = screenOf(c, req, res);
    if (screen < 0)
        return;
    c.model.pollScreen(static_cast<size_t>(screen));
    answer(res, 200,
           {{"screen", req.get_param_value("screen")}, {"items", itemsJson(c.model.screenState(screen), nowMs(c))}});
}

void getStatus(Context& c, const Request&, Response& res) { answer(res, 200, status(c)); }

// What a trend request asks for: the trend, and a range of the history
// ("from", "to", at most "points" spans), or without "from" the recent
// minutes the panel keeps in memory, point by point. trend < 0 after
// answering what was wrong.
struct TrendRequest {
    int trend = -1;
    bool ranged = false;
    int64_t from = 0, to = 0;
    int points = kDefaultTrendPoints;
};

TrendRequest trendRequest(const Context& c, const Request& req, Response& res)
{
    TrendRequest ask;
    ask.ranged = req.has_param("from");
    if (req.has_param("points"))
        ask.points = std::atoi(req.get_param_value("points").c_str());
    if (ask.points < 1 || ask.points > kMaxTrendPoints) {
        refuse(res, 400, "\"points\" must be a whole number from 1 to " + std::to_string(kMaxTrendPoints));
        return ask;
    }
    if (!timeParam(req, res, "from", 0, &ask.from) || !timeParam(req, res, "to", nowMs(c), &ask.to))
        return ask;
    if (ask.from >= ask.to) {
        refuse(res, 400, "\"from\" must come before \"to\"");
        return ask;
    }
    ask.trend = trendOf(c, req, res);
    return ask;
}

void getTrend(Context& c, const Request& req, Response& res)
{
    const TrendRequest ask = trendRequest(c, req, res);
    if (ask.trend < 0)
        return;
    const PanelItem& item = c.model.trendItem(ask.trend);
    if (!ask.ranged) {
        const int64_t since = req.has_param("since") ? std::atoll(req.get_param_value("since").c_str()) : 0;
        return answer(res, 200, trendJson(item, c.model.trendPoints(ask.trend, since)));
    }
    answer(res, 200, trendRangeJson(item, c.model.trendRange(ask.trend, ask.from, ask.to, ask.points)));
}

void getTrendCsv(Context& c, const Request& req, Response& res)
{
    const TrendRequest ask = trendRequest(c, req, res);
    if (ask.trend < 0)
        return;
    const PanelItem& item = c.model.trendItem(ask.trend);
    std::string name = item.varText;
    for (char& ch : name)
        ch = std::isalnum(static_cast<unsigned char>(ch)) ? ch : '_';
    res.set_header("Content-Disposition", "attachment; filename=\"trend-" + name + ".csv\"");
    const std::string csv = ask.ranged ? trendRangeCsv(item, c.model.trendRange(ask.trend, ask.from, ask.to, ask.points))
                                       : trendCsv(item, c.model.trendPoints(ask.trend, 0));
    res.set_content(csv, "text/csv; charset=utf-8");
}

void getAlarms(Context& c, const Request&, Response& res)
{
    answer(res, 200, alarmsJson(c.alarms.statuses(), c.alarms.counts(), c.history.alarmEvents(0, kAlarmHistory, true)));
}

// From "since" on, the first entries, or with "last=N" the N newest.
void getJournal(Context& c, const Request& req, Response& res)
{
    int64_t since = 0;
    if (!timeParam(req, res, "since", 0, &since))
        return;
    const bool newest = req.has_param("last");
    const long long last = newest ? std::atoll(req.get_param_value("last").c_str()) : 0;
    if (newest && (last < 1 || last > static_cast<long long>(kJournalPage)))
        return refuse(res, 400, "\"last\" must be a whole number from 1 to " + std::to_string(kJournalPage));
    answer(res, 200, journalJson(c.history.journal(since, newest ? static_cast<size_t>(last) : kJournalPage, newest)));
}

void getEvents(Context& c, const Request& req, Response& res)
{
    const int screen = screenOf(c, req, res);
    if (screen < 0)
        return;
    if (c.streams.fetch_add(1) >= c.settings.streamLimit) {
        c.streams.fetch_sub(1);
        refuse(res, 503, "this panel serves at most " + std::to_string(c.settings.streamLimit) +
                             " open screens at once and all are in use; the page tries again by itself");
        return;
    }
    const int id = c.model.openStream(static_cast<size_t>(screen));
    auto stream = std::make_shared<EventStream>(c.model, static_cast<size_t>(screen), [&c] { return status(c); });
    res.set_header("Cache-Control", "no-store");
    res.set_chunked_content_provider(
        "text/event-stream",
        [&c, stream](size_t, httplib::DataSink& sink) {
            if (c.stopping.load()) {
                sink.done();
                return true;
            }
            return stream->step([&sink](const std::string& text) { return sink.write(text.data(), text.size()); });
        },
        [&c, id](bool) {
            c.model.closeStream(id);
            c.streams.fetch_sub(1);
        });
}

// ---- changing --------------------------------------------------------------

void postWrite(Context& c, const Request& req, Response& res)
{
    Json body;
    if (!parseBody(req, res, &body))
        return;
    if (!body.contains("var") || !body["var"].is_string())
        return refuse(res, 400, "\"var\" must be a variable's text, e.g. {\"var\": \"VW20\", \"value\": 4321}");
    const Json& value = body.contains("value") ? body["value"] : Json();
    if (!value.is_number() && !value.is_boolean())
        return refuse(res, 400, "\"value\" must be a number, or true/false for a bit");
    const double number = value.is_boolean() ? (value.get<bool>() ? 1 : 0) : value.get<double>();
    answerAction(res, c.actions.write(body["var"], number, req.remote_addr));
}

void postRead(Context& c, const Request& req, Response& res)
{
    Json body;
    if (!parseBody(req, res, &body))
        return;
    std::vector<std::string> vars;
    const Json& list = body.contains("vars") ? body["vars"] : Json();
    for (const Json& var : list.is_array() ? list : Json::array({Json()})) {
        if (!var.is_string())
            return refuse(res, 400, "\"vars\" must be a list of variables' texts, e.g. {\"vars\": [\"VW20\"]}");
        vars.push_back(var);
    }
    const ReadResult read = c.actions.readNow(vars, req.remote_addr);
    if (read.items.empty())
        return answerAction(res, read.result);
    Json items = itemsJson(read.items, nowMs(c));
    for (size_t i = 0; i < items.size(); ++i)
        if (!read.errors[i].empty())
            items[i]["error"] = read.errors[i];
    const bool ok = read.result.outcome == Outcome::Done;
    answer(res, httpStatus(read.result.outcome), {{"ok", ok}, {ok ? "message" : "error", read.result.message}, {"items", items}});
}

void postStation(Context& c, const Request& req, Response& res)
{
    Json body;
    if (!parseBody(req, res, &body))
        return;
    if (!body.contains("station") || !body["station"].is_number_integer() || !body.contains("on") ||
        !body["on"].is_boolean())
        return refuse(res, 400, "expected {\"station\": N, \"on\": true or false}");
    answerAction(res, c.actions.switchStation(body["station"].get<int>(), body["on"].get<bool>(), req.remote_addr));
}

void postAck(Context& c, const Request& req, Response& res)
{
    Json body;
    if (!parseBody(req, res, &body))
        return;
    if (!body.contains("id") || !body["id"].is_string())
        return refuse(res, 400, "expected {\"id\": \"ALARM-ID\"}");
    answerAction(res, c.actions.acknowledge(body["id"], req.remote_addr));
}

enum class Access { Open, Change };

struct Route {
    const char* method;
    const char* pattern;
    void (*handler)(Context&, const Request&, Response&);
    Access access;
};

const Route kRoutes[] = {
    {"GET", "/", page, Access::Open},
    {"GET", "/status", page, Access::Open},
    {"GET", "/alarms", page, Access::Open},
    {"GET", "/journal", page, Access::Open},
    {"GET", R"(/screen/([A-Za-z0-9_-]+))", screenPage, Access::Open},
    {"GET", R"(/assets/(panel\.css|panel\.js))", asset, Access::Open},
    {"GET", "/api/screens", getScreens, Access::Open},
    {"GET", "/api/values", getValues, Access::Open},
    {"GET", "/api/status", getStatus, Access::Open},
    {"GET", "/api/trend", getTrend, Access::Open},
    {"GET", "/api/trend.csv", getTrendCsv, Access::Open},
    {"GET", "/api/events", getEvents, Access::Open},
    {"GET", "/api/alarms", getAlarms, Access::Open},
    {"GET", "/api/journal", getJournal, Access::Open},
    {"POST", "/api/write", postWrite, Access::Change},
    {"POST", "/api/read", postRead, Access::Change},
    {"POST", "/api/station", postStation, Access::Change},
    {"POST", "/api/alarms/ack", postAck, Access::Change},
};

// Why a bind failed, asked of the system itself: httplib says only that it did.
std::string bindFailure(const std::string& host, int port)
{
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE;
    addrinfo* found = nullptr;
    if (getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found) != 0 || !found)
        return "cannot listen on " + common::endpointText(host, port) + ": not an address of this machine";
    const int fd = socket(found->ai_family, found->ai_socktype, found->ai_protocol);
    const int yes = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    const bool bound = ::bind(fd, found->ai_addr, found->ai_addrlen) == 0 && ::listen(fd, 1) == 0;
    const int error = errno;
    ::close(fd);
    freeaddrinfo(found);
    if (!bound && error == EADDRINUSE)
        return common::endpointText(host, port) + " is in use";
    return "cannot listen on " + common::endpointText(host, port) + (bound ? "" : std::string(": ") + std::strerror(error));
}

}  // namespace

PanelServer::PanelServer(PlantModel& model, OperatorActions& actions, AlarmBoard& alarms, HistoryStore& history,
                         ServerSettings settings)
    : context_(new Context{model, actions, alarms, history, std::move(settings)}), server_(new httplib::Server)
{
    const size_t threads = context_->settings.streamLimit + context_->settings.requestThreads;
    server_->new_task_queue = [threads] { return new httplib::ThreadPool(threads); };
    server_->set_keep_alive_timeout(kKeepAliveSeconds);
    server_->set_payload_max_length(context_->settings.bodyLimit);
    // SO_REUSEADDR alone: a restarted panel binds again at once, and a
    // second one on the same port fails instead of sharing it.
    Context& context = *context_;
    server_->set_socket_options([&context](int fd) {
        const int yes = 1;
        setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        context.listenSocket = fd;
    });
    route();
}

PanelServer::~PanelServer() { stop(); }

bool PanelServer::bind(std::string* error)
{
    const ServerSettings& settings = context_->settings;
    const bool any = settings.port == 0;
    port_ = any ? server_->bind_to_any_port(settings.host) : settings.port;
    if ((any && port_ > 0) || (!any && server_->bind_to_port(settings.host, settings.port))) {
        context_->port = port_;
        // httplib listens with a queue of 5: browsers that reconnect together
        // (a panel restarted) would wait seconds for their turn. Listening
        // again only lengthens the queue.
        ::listen(context_->listenSocket, kAcceptQueue);
        return true;
    }
    *error = bindFailure(settings.host, settings.port);
    return false;
}

std::string PanelServer::url() const
{
    std::string host = context_->settings.host;
    if (host == "0.0.0.0" || host == "::") {
        char name[256] = "";
        host = gethostname(name, sizeof name - 1) == 0 && name[0] ? name : "localhost";
    }
    std::string url = "http://" + common::endpointText(host, port_) + "/";
    if (!context_->settings.token.empty())
        url += "?token=" + context_->settings.token;
    return url;
}

// httplib's stop() does nothing before its accept loop runs, and a loop
// that starts after it waits for connections for ever: a Ctrl-C right
// after start left the panel hanging. So run() does not listen once stop()
// has come, and stop() waits out the instant between run()'s start and
// httplib's loop.
void PanelServer::run()
{
    {
        const std::lock_guard<std::mutex> lock(context_->runMutex);
        if (context_->stopping.load())
            return;
        context_->runStarted = true;
    }
    server_->listen_after_bind();
    context_->runEnded.store(true);
}

void PanelServer::stop()
{
    {
        const std::lock_guard<std::mutex> lock(context_->runMutex);
        context_->stopping.store(true);
        if (!context_->runStarted)
            return;
    }
    while (!server_->is_running() && !context_->runEnded.load())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    server_->stop();
}

void PanelServer::route()
{
    Context& c = *context_;
    const bool loopback = isLoopbackAddress(c.settings.host);
    server_->set_pre_routing_handler([&c, loopback](const Request& req, Response& res) {
        res.set_header("Content-Security-Policy", kContentPolicy);
        res.set_header("X-Content-Type-Options", "nosniff");
        res.set_header("Referrer-Policy", "no-referrer");
        if (loopback && !isLoopbackHostHeader(req.get_header_value("Host"), c.port)) {
            refuse(res, 403, "this panel listens on loopback and answers only requests addressed to it there");
            return httplib::Server::HandlerResponse::Handled;
        }
        const size_t length = req.get_header_value<uint64_t>("Content-Length");
        if (length > c.settings.bodyLimit) {
            refuse(res, 413, "request body of " + std::to_string(length) + " bytes is over the limit of " +
                                 std::to_string(c.settings.bodyLimit));
            return httplib::Server::HandlerResponse::Handled;
        }
        return httplib::Server::HandlerResponse::Unhandled;
    });
    // A chunked body over the limit is cut off by the library itself.
    server_->set_error_handler([](const Request&, Response& res) {
        if (res.body.empty())
            refuse(res, res.status,
                   res.status == 413 ? "request body over the limit" : "no such page: " + std::to_string(res.status));
    });
    for (const Route& route : kRoutes) {
        const auto handler = [&c, route](const Request& req, Response& res) {
            if (route.access == Access::Change && !mayChange(c, req, res))
                return;
            route.handler(c, req, res);
        };
        if (std::strcmp(route.method, "GET") == 0)
            server_->Get(route.pattern, handler);
        else
            server_->Post(route.pattern, handler);
    }
}

}  // namespace logohost
