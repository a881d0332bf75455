// One connection to an MQTT broker through libmosquitto, kept up for as
// long as the client runs: a thread of its own does the network work and,
// whenever the connection is lost or refused, connects again after a
// back-off of 1 s, doubled at each failure up to 30 s, and 1 s again once
// the broker has accepted a connection. An attempt the broker has not
// accepted within 10 s counts as failed.
//
// It runs libmosquitto's loop itself rather than mosquitto_loop_forever:
// that one sleeps out its reconnect delay where a stop cannot wake it (up
// to the longest delay at Ctrl-C), and gives up for good on some errors,
// a failed TLS handshake among them, where a bridge must keep trying.
#ifndef LOGOHOST_MQTT_CLIENT_H
#define LOGOHOST_MQTT_CLIENT_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

struct mosquitto;
struct mosquitto_message;

namespace logohost {

// The node's status (its will, and "online"): a subscriber must learn it
// once at least.
constexpr int kStatusQos = 1;

struct BrokerSettings {
    std::string host;
    int port = 1883;
    std::string user;      // empty: anonymous
    std::string password;
    std::string caFile;    // empty: plain TCP; else TLS, the broker's certificate checked against it
    std::string clientId;
    std::string willTopic;  // retained, sent by the broker when the connection dies
    std::string willPayload;
};

class MqttClient {
public:
    // Each runs on the client's thread, where it may publish and subscribe
    // but must not wait for anything slow.
    struct Handlers {
        std::function<void()> connected;
        std::function<void(const std::string& what)> trouble;  // why it is not connected, when that changes
        std::function<void(const std::string& topic, const std::string& payload, bool retained)> message;
    };

    MqttClient(BrokerSettings settings, Handlers handlers);
    ~MqttClient();
    MqttClient(const MqttClient&) = delete;
    MqttClient& operator=(const MqttClient&) = delete;

    // False, saying why, when the settings cannot be used (a CA file that
    // cannot be read); a broker that cannot be reached yet is no failure.
    bool start(std::string* error);
    // Sends one last message, since a clean disconnect suppresses the
    // will, and disconnects.
    void stop(const std::string& lastTopic, const std::string& lastPayload);

    // False when not connected or the library refused it.
    bool publish(const std::string& topic, const std::string& payload, bool retain, int qos);
    bool subscribe(const std::string& pattern, int qos);
    bool unsubscribe(const std::string& pattern);

    bool connected() const { return connected_; }
    // Grows with every connection the broker accepts.
    uint64_t connections() const { return connections_; }
    // Messages handed to the library and not yet written to the socket
    // (QoS 0) or acknowledged (QoS 1) on this connection.
    int64_t unsent() const { return unsent_; }
    std::string address() const;

private:
    const BrokerSettings settings_;
    const Handlers handlers_;
    mosquitto* mosq_ = nullptr;
    std::thread thread_;
    std::atomic<bool> connected_{false};
    std::atomic<bool> accepted_{false};  // since the last failure
    std::atomic<bool> closing_{false};
    std::atomic<uint64_t> connections_{0};
    std::atomic<int64_t> unsent_{0};
    std::string lastTrouble_;  // on the client's thread only
    std::mutex waitMutex_;
    std::condition_variable wake_;
    bool stopping_ = false;  // under waitMutex_

    bool configure(std::string* error);
    void run();
    bool pause(std::chrono::milliseconds delay);
    void report(std::string what);

    static void onConnect(mosquitto*, void* self, int rc);
    static void onDisconnect(mosquitto*, void* self, int rc);
    static void onMessage(mosquitto*, void* self, const mosquitto_message* message);
    static void onPublish(mosquitto*, void* self, int mid);
};

}  // namespace logohost

#endif  // LOGOHOST_MQTT_CLIENT_H
