#include "host/mqtt/mqtt_client.h"

#include <mosquitto.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "common/endpoint.h"
#include "common/thread_name.h"

namespace logohost {
namespace {

constexpr int kKeepAliveSeconds = 20;  // a broker gone without a word is noticed within 30 s
constexpr int kLoopMs = 100;           // the longest a stop waits for the network thread
constexpr std::chrono::milliseconds kFirstDelay{1000};
constexpr std::chrono::milliseconds kLongestDelay{30000};
// A connection the broker has not accepted by then is given up: over TLS
// libmosquitto 2.0 notices a refused connection only at its keep-alive.
constexpr std::chrono::seconds kConnectLimit{10};
constexpr int kCloseChecks = 200;  // 10 ms each: the last message and the disconnect written out
constexpr std::chrono::milliseconds kCloseCheck{10};

std::once_flag libraryReady;

std::string errorText(int rc)
{
    return rc == MOSQ_ERR_ERRNO ? std::strerror(errno) : mosquitto_strerror(rc);
}

}  // namespace

MqttClient::MqttClient(BrokerSettings settings, Handlers handlers)
    : settings_(std::move(settings)), handlers_(std::move(handlers))
{
    std::call_once(libraryReady, [] { mosquitto_lib_init(); });
    // A clean session: sets sent while the bridge was away are not kept
    // for it to write long after whoever sent them gave up.
    mosq_ = mosquitto_new(settings_.clientId.c_str(), true, this);
}

MqttClient::~MqttClient()
{
    stop("", "");
    if (mosq_)
        mosquitto_destroy(mosq_);
}

std::string MqttClient::address() const { return common::endpointText(settings_.host, settings_.port); }

bool MqttClient::configure(std::string* error)
{
    if (!mosq_) {
        *error = "cannot make an MQTT client: " + std::string(std::strerror(errno));
        return false;
    }
    mosquitto_threaded_set(mosq_, true);
    mosquitto_connect_callback_set(mosq_, onConnect);
    mosquitto_disconnect_callback_set(mosq_, onDisconnect);
    mosquitto_message_callback_set(mosq_, onMessage);
    mosquitto_publish_callback_set(mosq_, onPublish);
    if (!settings_.user.empty())
        mosquitto_username_pw_set(mosq_, settings_.user.c_str(), settings_.password.c_str());
    if (!settings_.willTopic.empty())
        mosquitto_will_set(mosq_, settings_.willTopic.c_str(), static_cast<int>(settings_.willPayload.size()),
                           settings_.willPayload.data(), kStatusQos, true);
    if (!settings_.caFile.empty() &&
        mosquitto_tls_set(mosq_, settings_.caFile.c_str(), nullptr, nullptr, nullptr, nullptr) != MOSQ_ERR_SUCCESS) {
        *error = "--mqtt-ca " + settings_.caFile + ": cannot be read as a CA certificate file";
        return false;
    }
    return true;
}

bool MqttClient::start(std::string* error)
{
    if (!configure(error))
        return false;
    const int rc = mosquitto_connect_async(mosq_, settings_.host.c_str(), settings_.port, kKeepAliveSeconds);
    if (rc != MOSQ_ERR_SUCCESS)
        report(errorText(rc));
    thread_ = std::thread([this] { run(); });
    return true;
}

void MqttClient::stop(const std::string& lastTopic, const std::string& lastPayload)
{
    if (!thread_.joinable())
        return;
    closing_ = true;
    if (connected_) {
        if (!lastTopic.empty())
            publish(lastTopic, lastPayload, true, 0);
        mosquitto_disconnect(mosq_);
        for (int check = 0; check < kCloseChecks && connected_; ++check)
            std::this_thread::sleep_for(kCloseCheck);
    }
    {
        const std::lock_guard<std::mutex> lock(waitMutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    thread_.join();
}

void MqttClient::run()
{
    common::nameThisThread("mqtt-network");
    std::chrono::milliseconds delay = kFirstDelay;
    auto attempt = std::chrono::steady_clock::now();
    for (;;) {
        {
            const std::lock_guard<std::mutex> lock(waitMutex_);
            if (stopping_)
                return;
        }
        if (mosquitto_loop(mosq_, kLoopMs, 1) == MOSQ_ERR_SUCCESS) {
            if (connected_ || closing_ || std::chrono::steady_clock::now() - attempt < kConnectLimit)
                continue;
            report("no connection within " + std::to_string(kConnectLimit.count()) + " s");
        }
        connected_ = false;
        if (closing_) {
            pause(kCloseCheck);  // until stop() has seen the last words out
            continue;
        }
        if (accepted_.exchange(false))
            delay = kFirstDelay;
        if (!pause(delay))
            return;
        delay = std::min(delay * 2, kLongestDelay);
        // It closes whatever is left of the last attempt first.
        const int rc = mosquitto_reconnect_async(mosq_);
        if (rc != MOSQ_ERR_SUCCESS)
            report(errorText(rc));
        attempt = std::chrono::steady_clock::now();
    }
}

bool MqttClient::pause(std::chrono::milliseconds delay)
{
    std::unique_lock<std::mutex> lock(waitMutex_);
    return !wake_.wait_for(lock, delay, [this] { return stopping_; });
}

// libmosquitto's sentences end with a full stop; the bridge's message goes on.
void MqttClient::report(std::string what)
{
    if (!what.empty() && what.back() == '.')
        what.pop_back();
    if (what == lastTrouble_)
        return;
    lastTrouble_ = what;
    if (handlers_.trouble)
        handlers_.trouble(what);
}

bool MqttClient::publish(const std::string& topic, const std::string& payload, bool retain, int qos)
{
    if (!connected_)
        return false;
    ++unsent_;
    const int rc = mosquitto_publish(mosq_, nullptr, topic.c_str(), static_cast<int>(payload.size()), payload.data(),
                                     qos, retain);
    if (rc == MOSQ_ERR_SUCCESS)
        return true;
    --unsent_;
    return false;
}

bool MqttClient::subscribe(const std::string& pattern, int qos)
{
    return mosquitto_subscribe(mosq_, nullptr, pattern.c_str(), qos) == MOSQ_ERR_SUCCESS;
}

bool MqttClient::unsubscribe(const std::string& pattern)
{
    return mosquitto_unsubscribe(mosq_, nullptr, pattern.c_str()) == MOSQ_ERR_SUCCESS;
}

void MqttClient::onConnect(mosquitto*, void* self, int rc)
{
    MqttClient& client = *static_cast<MqttClient*>(self);
    if (rc != 0) {
        client.report(std::string("refused the connection: ") + mosquitto_connack_string(rc));
        return;
    }
    client.lastTrouble_.clear();
    client.unsent_ = 0;  // what the last connection had not written is gone with it
    client.accepted_ = true;
    client.connected_ = true;
    ++client.connections_;
    if (client.handlers_.connected)
        client.handlers_.connected();
}

void MqttClient::onDisconnect(mosquitto*, void* self, int rc)
{
    MqttClient& client = *static_cast<MqttClient*>(self);
    client.connected_ = false;
    // A refusal was told with its reason on connect; 0 is our own disconnect.
    if (rc != MOSQ_ERR_SUCCESS && rc != MOSQ_ERR_CONN_REFUSED)
        client.report(errorText(rc));
}

void MqttClient::onMessage(mosquitto*, void* self, const mosquitto_message* message)
{
    const MqttClient& client = *static_cast<MqttClient*>(self);
    if (!client.handlers_.message)
        return;
    const char* data = static_cast<const char*>(message->payload);
    const std::string payload = message->payloadlen > 0 ? std::string(data, static_cast<size_t>(message->payloadlen)) : "";
    client.handlers_.message(message->topic, payload, message->retain);
}

void MqttClient::onPublish(mosquitto*, void* self, int)
{
    std::atomic<int64_t>& unsent = static_cast<MqttClient*>(self)->unsent_;
    // A QoS 1 message of an earlier connection, sent again, may be
    // acknowledged after the count started again at 0.
    int64_t now = unsent.load();
    while (now > 0 && !unsent.compare_exchange_weak(now, now - 1)) {
    }
}

}  // namespace logohost
