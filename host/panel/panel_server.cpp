#include "host/panel/panel_server.h"

#include <unistd.h>

#include <atomic>
#include <thread>

#include <httplib.h>

#include "host/panel/embedded_files.h"
#include "host/panel/http_security.h"
#include "host/panel/panel_views.h"

namespace logohost {
namespace {

using httplib::Request;
using httplib::Response;

// Each open event stream holds a worker for as long as it is open, and each
// idle keep-alive connection for its time-out: room for a control room full
// of browsers, and a cap on streams so that requests always find a worker.
constexpr size_t kWorkers = 32;
constexpr size_t kMaxStreams = 24;
constexpr time_t kKeepAliveSeconds = 2;
constexpr std::chrono::milliseconds kHeartbeat{1000};  // also how soon a closed browser is noticed
constexpr std::chrono::milliseconds kMinEventGap{100};  // events are merged below this spacing

// Nothing but the panel itself: no script, style, image or connection to
// any other site, and no framing by one.
const char* const kContentPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; connect-src 'self'; "
    "base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

const char* contentTypeOf(const std::string& name)
{
    const auto endsWith = [&name](const char* suffix) {
        const std::string s = suffix;
        return name.size() >= s.size() && name.compare(name.size() - s.size(), s.size(), s) == 0;
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
    case Outcome::Replaced: return 409;
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

std::string jsonErrorText(const std::exception& e)
{
    const std::string what = e.what();
    const size_t tagEnd = what.find("] ");
    return tagEnd == std::string::npos ? what : what.substr(tagEnd + 2);
}

// The body as a JSON object; false after answering why it is not one.
bool parseBody(const Request& req, Response& res, Json* out)
{
    try {
        *out = Json::parse(req.body);
    } catch (const std::exception& e) {
        refuse(res, 400, "malformed JSON: " + jsonErrorText(e));
        return false;
    }
    if (!out->is_object()) {
        refuse(res, 400, "expected a JSON object");
        return false;
    }
    return true;
}

// One browser's event stream for one screen: the items that changed and
// the new trend points, and the link's figures once a second.
class EventStream {
public:
    EventStream(PanelModel& model, size_t screen) : model_(model), screen_(screen)
    {
        for (const PanelItem& item : model.screens().screens[screen].items)
            trends_.push_back(TrendCursor{item.trend ? model.findTrend(item.varText) : -1, 0});
    }

    // One step of the stream: false once the browser has gone.
    bool step(httplib::DataSink& sink)
    {
        if (model_.stopping()) {
            sink.done();
            return true;
        }
        std::string out;
        if (!started_) {
            out = "retry: 2000\n\n";
            started_ = true;
        } else {
            std::this_thread::sleep_until(lastEvent_ + kMinEventGap);
            version_ = model_.waitForChange(version_, kHeartbeat);
        }
        lastEvent_ = std::chrono::steady_clock::now();
        const Json changes = collectChanges();
        if (!changes.empty())
            out += "event: items\ndata: " + changes.dump() + "\n\n";
        if (lastEvent_ - lastStatus_ >= kHeartbeat) {
            lastStatus_ = lastEvent_;
            out += "event: status\ndata: " + statusJson(model_.status()).dump() + "\n\n";
        }
        return out.empty() || sink.write(out.data(), out.size());
    }

private:
    struct TrendCursor {
        int trend;
        int64_t since;
    };

    PanelModel& model_;
    const size_t screen_;
    bool started_ = false;
    uint64_t version_ = 0;
    std::vector<Json> sent_;
    std::vector<TrendCursor> trends_;
    std::chrono::steady_clock::time_point lastEvent_{}, lastStatus_{};

    Json collectChanges()
    {
        const std::vector<ItemState> states = model_.screenState(screen_);
        sent_.resize(states.size());
        Json items = Json::array();
        Json trends = Json::object();
        for (size_t i = 0; i < states.size(); ++i) {
            Json item = itemJson(states[i]);
            if (item != sent_[i])
                items.push_back(item);
            sent_[i] = std::move(item);
            TrendCursor& cursor = trends_[i];
            if (cursor.trend < 0)
                continue;
            const std::vector<TrendPoint> points = model_.trendPoints(cursor.trend, cursor.since);
            if (points.empty())
                continue;
            cursor.since = points.back().at;
            trends[states[i].var] = trendJson(model_.trendItem(cursor.trend), points)["points"];
        }
        if (items.empty() && trends.empty())
            return Json::object();
        return {{"items", items}, {"trends", trends}};
    }
};

}  // namespace

PanelServer::PanelServer(PanelModel& model, ServerSettings settings)
    : model_(model), settings_(std::move(settings)), server_(new httplib::Server)
{
    server_->new_task_queue = [] { return new httplib::ThreadPool(kWorkers); };
    server_->set_keep_alive_timeout(kKeepAliveSeconds);
    server_->set_payload_max_length(settings_.bodyLimit);
    route();
}

PanelServer::~PanelServer() { stop(); }

bool PanelServer::bind(std::string* error)
{
    const bool any = settings_.port == 0;
    port_ = any ? server_->bind_to_any_port(settings_.host) : settings_.port;
    if ((any && port_ > 0) || (!any && server_->bind_to_port(settings_.host, settings_.port)))
        return true;
    *error = "cannot listen on " + settings_.host + ":" + std::to_string(settings_.port) +
             (any ? "" : " (in use, or not an address of this machine?)");
    return false;
}

std::string PanelServer::url() const
{
    std::string host = settings_.host;
    if (host == "0.0.0.0" || host == "::") {
        char name[256] = "";
        host = gethostname(name, sizeof name - 1) == 0 && name[0] ? name : "localhost";
    } else if (host.find(':') != std::string::npos) {
        host = "[" + host + "]";
    }
    std::string url = "http://" + host + ":" + std::to_string(port_) + "/";
    if (!settings_.token.empty())
        url += "?token=" + settings_.token;
    return url;
}

void PanelServer::run() { server_->listen_after_bind(); }

void PanelServer::stop()
{
    if (server_->is_running())
        server_->stop();
}

void PanelServer::route()
{
    httplib::Server& server = *server_;
    PanelModel& model = model_;
    const ServerSettings& settings = settings_;
    const bool loopback = isLoopbackAddress(settings.host);
    auto streams = std::make_shared<std::atomic<size_t>>(0);

    server.set_pre_routing_handler([this, loopback, &settings](const Request& req, Response& res) {
        res.set_header("Content-Security-Policy", kContentPolicy);
        res.set_header("X-Content-Type-Options", "nosniff");
        res.set_header("Referrer-Policy", "no-referrer");
        if (loopback && !isLoopbackHostHeader(req.get_header_value("Host"), port_)) {
            refuse(res, 403, "this panel listens on loopback and answers only requests addressed to it there");
            return httplib::Server::HandlerResponse::Handled;
        }
        const size_t length = req.get_header_value<uint64_t>("Content-Length");
        if (length > settings.bodyLimit) {
            refuse(res, 413, "request body of " + std::to_string(length) + " bytes is over the limit of " +
                                 std::to_string(settings.bodyLimit));
            return httplib::Server::HandlerResponse::Handled;
        }
        return httplib::Server::HandlerResponse::Unhandled;
    });
    // A chunked body over the limit is cut off by the library itself.
    server.set_error_handler([](const Request&, Response& res) {
        if (res.body.empty())
            refuse(res, res.status,
                   res.status == 413 ? "request body over the limit" : "no such page: " + std::to_string(res.status));
    });

    // A page opened with ?token=... leaves the token in a cookie that only
    // this panel's own requests carry, so its controls work from then on.
    const auto page = [&settings](const char* file) {
        return [&settings, file](const Request& req, Response& res) {
            const EmbeddedFile* content = findEmbeddedFile(file);
            if (!settings.token.empty() && req.has_param("token") &&
                tokenMatches(settings.token, "Bearer " + req.get_param_value("token"), ""))
                res.set_header("Set-Cookie", std::string(kTokenCookie) + "=" + settings.token +
                                                 "; Path=/; HttpOnly; SameSite=Strict");
            res.set_content(content->data, content->size, contentTypeOf(file));
        };
    };
    server.Get("/", page("www/panel.html"));
    server.Get("/status", page("www/panel.html"));
    server.Get(R"(/screen/([A-Za-z0-9_-]+))", [&model, page](const Request& req, Response& res) {
        page("www/panel.html")(req, res);
        if (model.findScreen(req.matches[1]) < 0)
            res.status = 404;  // the page says so too, from /api/screens
    });
    server.Get(R"(/assets/(panel\.css|panel\.js))", [](const Request& req, Response& res) {
        const std::string name = "www/" + std::string(req.matches[1]);
        const EmbeddedFile* content = findEmbeddedFile(name);
        res.set_header("Cache-Control", "no-cache");
        res.set_content(content->data, content->size, contentTypeOf(name));
    });

    // A change must come from this panel's pages or a script, with the
    // token where one is needed.
    const auto mayChange = [&settings](const Request& req, Response& res) {
        std::string why;
        if (!isSameOrigin(req.get_header_value("Origin"), req.get_header_value("Sec-Fetch-Site"),
                          req.get_header_value("Host"), &why)) {
            refuse(res, 403, "refused: " + why);
            return false;
        }
        if (!settings.token.empty() &&
            !tokenMatches(settings.token, req.get_header_value("Authorization"), req.get_header_value("Cookie"))) {
            refuse(res, 401, "this panel needs its token for changes: open the address logohost printed "
                             "(with ?token=), or send Authorization: Bearer TOKEN");
            return false;
        }
        return true;
    };
    const auto screenOf = [&model](const Request& req, Response& res) {
        const int screen = model.findScreen(req.get_param_value("screen"));
        if (screen < 0)
            refuse(res, req.has_param("screen") ? 404 : 400,
                   req.has_param("screen") ? "no screen named \"" + req.get_param_value("screen") + "\""
                                           : "give the screen: ?screen=NAME");
        return screen;
    };
    const auto trendOf = [&model](const Request& req, Response& res) {
        const int trend = model.findTrend(req.get_param_value("var"));
        if (trend < 0)
            refuse(res, 404, "no trended item has var \"" + req.get_param_value("var") + "\"");
        return trend;
    };

    server.Get("/api/screens", [&model, &settings](const Request& req, Response& res) {
        const bool tokenOk = settings.token.empty() || tokenMatches(settings.token, req.get_header_value("Authorization"),
                                                                   req.get_header_value("Cookie"));
        answer(res, 200, screensJson(model.screens(), tokenOk, model.readOnly()));
    });
    server.Get("/api/values", [&model, screenOf](const Request& req, Response& res) {
        const int screen = screenOf(req, res);
        if (screen < 0)
            return;
        model.pollScreen(static_cast<size_t>(screen));
        answer(res, 200, {{"screen", req.get_param_value("screen")}, {"items", itemsJson(model.screenState(screen))}});
    });
    server.Get("/api/status", [&model](const Request&, Response& res) { answer(res, 200, statusJson(model.status())); });
    server.Get("/api/trend", [&model, trendOf](const Request& req, Response& res) {
        const int trend = trendOf(req, res);
        if (trend < 0)
            return;
        const int64_t since = req.has_param("since") ? std::atoll(req.get_param_value("since").c_str()) : 0;
        answer(res, 200, trendJson(model.trendItem(trend), model.trendPoints(trend, since)));
    });
    server.Get("/api/trend.csv", [&model, trendOf](const Request& req, Response& res) {
        const int trend = trendOf(req, res);
        if (trend < 0)
            return;
        const PanelItem& item = model.trendItem(trend);
        std::string name = item.varText;
        for (char& c : name)
            c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
        res.set_header("Content-Disposition", "attachment; filename=\"trend-" + name + ".csv\"");
        res.set_content(trendCsv(item, model.trendPoints(trend, 0)), "text/csv; charset=utf-8");
    });
    server.Get("/api/events", [&model, screenOf, streams](const Request& req, Response& res) {
        const int screen = screenOf(req, res);
        if (screen < 0)
            return;
        if (streams->fetch_add(1) >= kMaxStreams) {
            streams->fetch_sub(1);
            refuse(res, 503, "too many open screens; close some and try again");
            return;
        }
        const int id = model.openStream(static_cast<size_t>(screen));
        auto stream = std::make_shared<EventStream>(model, static_cast<size_t>(screen));
        res.set_header("Cache-Control", "no-store");
        res.set_chunked_content_provider(
            "text/event-stream", [stream](size_t, httplib::DataSink& sink) { return stream->step(sink); },
            [&model, id, streams](bool) {
                model.closeStream(id);
                streams->fetch_sub(1);
            });
    });

    server.Post("/api/write", [&model, mayChange](const Request& req, Response& res) {
        Json body;
        if (!mayChange(req, res) || !parseBody(req, res, &body))
            return;
        if (!body.contains("var") || !body["var"].is_string())
            return refuse(res, 400, "\"var\" must be a variable's text, e.g. {\"var\": \"VW20\", \"value\": 4321}");
        const Json& value = body.contains("value") ? body["value"] : Json();
        if (!value.is_number() && !value.is_boolean())
            return refuse(res, 400, "\"value\" must be a number, or true/false for a bit");
        answerAction(res, model.write(body["var"], value.is_boolean() ? (value.get<bool>() ? 1 : 0) : value.get<double>()));
    });
    server.Post("/api/read", [&model, mayChange](const Request& req, Response& res) {
        Json body;
        if (!mayChange(req, res) || !parseBody(req, res, &body))
            return;
        std::vector<std::string> vars;
        const Json& list = body.contains("vars") ? body["vars"] : Json();
        for (const Json& var : list.is_array() ? list : Json::array({Json()})) {
            if (!var.is_string())
                return refuse(res, 400, "\"vars\" must be a list of variables' texts, e.g. {\"vars\": [\"VW20\"]}");
            vars.push_back(var);
        }
        const ReadResult read = model.readNow(vars);
        if (read.items.empty())
            return answerAction(res, read.result);
        Json items = itemsJson(read.items);
        for (size_t i = 0; i < items.size(); ++i)
            if (!read.errors[i].empty())
                items[i]["error"] = read.errors[i];
        const bool ok = read.result.outcome == Outcome::Done;
        answer(res, httpStatus(read.result.outcome),
               {{"ok", ok}, {ok ? "message" : "error", read.result.message}, {"items", items}});
    });
    server.Post("/api/station", [&model, mayChange](const Request& req, Response& res) {
        Json body;
        if (!mayChange(req, res) || !parseBody(req, res, &body))
            return;
        if (!body.contains("station") || !body["station"].is_number_integer() || !body.contains("on") ||
            !body["on"].is_boolean())
            return refuse(res, 400, "expected {\"station\": N, \"on\": true or false}");
        answerAction(res, model.switchStation(body["station"].get<int>(), body["on"].get<bool>()));
    });
}

}  // namespace logohost
