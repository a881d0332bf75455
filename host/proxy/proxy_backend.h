// What the proxy asks of the session, as an interface: the request logic
// is then tested against a controller played in memory, and runs against
// the real session through SessionBackend.
#ifndef LOGOHOST_PROXY_BACKEND_H
#define LOGOHOST_PROXY_BACKEND_H

#include <chrono>
#include <functional>
#include <vector>

#include "host/binding/session.h"

namespace logohost {

class ProxyBackend {
public:
    using Clock = std::chrono::steady_clock;
    virtual ~ProxyBackend() = default;

    virtual bool stationOn(int station) const = 0;
    virtual bool freshInImage(const DriverRange& range, std::chrono::milliseconds maxAge) const = 0;
    virtual std::vector<uint8_t> imageBytes(const DriverRange& range) const = 0;
    virtual int queueRead(const DriverRange& range) = 0;
    virtual bool readSettled(int id) const = 0;
    virtual OnceRead readOutcome(int id) const = 0;
    virtual void forgetRead(int id) = 0;
    virtual int queueWrite(const DriverWrite& write) = 0;
    virtual PendingWrite writeOutcome(int id) const = 0;
    virtual void forgetWrite(int id) = 0;
    virtual void abandonUnreachable() = 0;
    virtual bool waitUntil(Clock::time_point deadline, const std::function<bool()>& done) const = 0;
    virtual std::chrono::milliseconds requestDeadline(int frames) const = 0;
    virtual Clock::time_point now() const = 0;
};

class SessionBackend : public ProxyBackend {
public:
    explicit SessionBackend(Session& session) : session_(session) {}

    bool stationOn(int station) const override { return session_.stationOn(station); }
    bool freshInImage(const DriverRange& range, std::chrono::milliseconds maxAge) const override
    {
        return session_.freshInImage(range, maxAge);
    }
    std::vector<uint8_t> imageBytes(const DriverRange& range) const override { return session_.imageBytes(range); }
    int queueRead(const DriverRange& range) override { return session_.queueRead(range); }
    bool readSettled(int id) const override { return session_.readsSettled({id}); }
    OnceRead readOutcome(int id) const override { return session_.readOutcome(id); }
    void forgetRead(int id) override { session_.forgetReads({id}); }
    int queueWrite(const DriverWrite& write) override { return session_.queueWrite(write); }
    PendingWrite writeOutcome(int id) const override { return session_.writeOutcome(id); }
    void forgetWrite(int id) override { session_.forgetWrite(id); }
    void abandonUnreachable() override { session_.abandonUnreachable(); }
    bool waitUntil(Clock::time_point deadline, const std::function<bool()>& done) const override
    {
        return session_.waitUntil(deadline, done);
    }
    std::chrono::milliseconds requestDeadline(int frames) const override { return session_.requestDeadline(frames); }
    Clock::time_point now() const override { return session_.clock().steady(); }

private:
    Session& session_;
};

}  // namespace logohost

#endif  // LOGOHOST_PROXY_BACKEND_H
