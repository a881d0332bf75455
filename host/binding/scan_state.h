// What the host knows about each element it reads: its value, when it was
// last read and last changed, how its last request ended, and from that its
// quality. A value is shown as good only while it is: it turns stale when
// its scan has had more than enough time to read it again, and at once when
// its controller stops answering.
#ifndef LOGOHOST_SCAN_STATE_H
#define LOGOHOST_SCAN_STATE_H

#include <QList>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "host/binding/comm_loop.h"
#include "host/binding/driver_api.h"
#include "host/binding/link_health.h"
#include "host/notation/variable_notation.h"

namespace logohost {

enum class Quality { NeverRead, Ok, Stale, NoReply, Refused, Failed, StationOff };

// "never-read", "ok", "stale", "no-reply", "refused", "failed", "station-off":
// the class a page and a script tell the qualities apart by.
const char* qualityName(Quality quality);

struct ElementStatus {
    std::string name;  // "VW2", "Q3@2"
    int variable = 0;  // index into the variables given
    int station = 0;
    size_t controller = 0;
    bool hasValue = false;  // read at least once by this process
    int64_t value = 0;      // as the controller's displays show it: bits 0/1, words signed
    int64_t readAtMs = 0;   // wall clock of the last good read
    int64_t changedAtMs = 0;
    Quality quality = Quality::NeverRead;
    std::string why;        // for any quality but ok, in words: "no reply: connection refused"
    bool unreachable = false;  // its station cannot be reached or does not answer at all
    std::string linkCause;     // why its station is not answering, when it is not
    RequestFailure failure;  // of its last request, when that failed
    int failuresInRow = 0;
    uint64_t lastResult = 0;  // the number of the result that last covered it, 0: none yet
};

// The words of a state column: "ok", "never read", "stale: last read 4 s
// ago", "no reply: connection refused", "refused: reply from unit 2 ...".
std::string qualityWords(const ElementStatus& element);

// The cyclic list handed to the driver, one entry per variable.
QList<HOSTVAR> hostVariables(const std::vector<Variable>& variables, int defaultStation);

struct ScanTiming {
    // A value is stale once its last good read is older than this: the time
    // a request may take with its retries, plus one scan period.
    std::chrono::milliseconds staleAfter{4000};
    std::function<std::chrono::steady_clock::time_point()> now;
    std::function<int64_t()> wallMs;
};

class ScanState {
public:
    using HealthOf = std::function<LinkHealth(int station)>;
    using ControllerOf = std::function<size_t(int station)>;

    ScanState(const DriverApi& api, const std::vector<Variable>& variables, bool multiStation, int defaultStation,
              ScanTiming timing, ControllerOf controllerOf);

    // On the communication thread.
    void onResult(const RequestResult& result);
    void onStation(int station, bool off);

    // Every element with its quality as of now.
    std::vector<ElementStatus> snapshot(const HealthOf& health) const;
    // Whether every bit or word of the range belongs to an element read
    // well within maxAge, its station answering: the image then holds what
    // a new read would most likely bring.
    bool fresh(int station, int area, int address, int count, std::chrono::milliseconds maxAge,
               const HealthOf& health) const;
    ElementStatus element(size_t index, const HealthOf& health) const;
    size_t size() const { return elements_.size(); }
    // Results seen so far; an element whose lastResult is above this number
    // taken earlier has been read (or failed) since.
    uint64_t resultCount() const;

private:
    struct Element {
        ElementStatus status;
        Variable var;
        int index;    // within the variable
        int area;
        int address;  // driver address of the element's first bit or word
        int span;     // bits or words it covers
        bool lastFailed = false;
        bool stationOff = false;
        std::chrono::steady_clock::time_point readAt{};
    };

    const DriverApi& api_;
    const bool multiStation_;
    const ScanTiming timing_;
    mutable std::mutex mutex_;
    uint64_t results_ = 0;
    std::vector<Element> elements_;

    bool covers(const Element& element, const RequestResult& result) const;
    void refreshValue(Element* element) const;
    ElementStatus judged(const Element& element, const LinkHealth& health) const;
};

}  // namespace logohost

#endif  // LOGOHOST_SCAN_STATE_H
