// What the host knows about each element of the cyclic scan: value, when it
// last changed, and how its last request ended.
#ifndef LOGOHOST_SCAN_STATE_H
#define LOGOHOST_SCAN_STATE_H

#include <QList>

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "host/binding/comm_loop.h"
#include "host/binding/driver_api.h"
#include "host/notation/variable_notation.h"

namespace logohost {

enum class ElementState { NeverRead, Ok, Failed, StationOff };

struct ElementStatus {
    std::string name;        // "VW2", "Q3@2"
    int variable = 0;        // index into the variables given
    ElementState state = ElementState::NeverRead;
    bool hasValue = false;
    std::string value;       // formatted
    std::string changedAt;   // wall-clock time of the last change
    int returnCode = 0;      // of the last final failure
    int exceptionCode = 0;   // Modbus exception behind it, if any
    std::string refusal;     // why the host refused the reply behind it, if it did
    int failuresInRow = 0;
    uint64_t lastResult = 0;  // the number of the result that last covered it, 0: none yet
};

// "ok", "never read", "no reply", "illegal data address", "station off",
// "refused: reply from unit 2 to a request for unit 1"
std::string stateText(const ElementStatus& element);

// The cyclic list handed to the driver, one entry per variable.
QList<HOSTVAR> hostVariables(const std::vector<Variable>& variables, int defaultStation);

class ScanState {
public:
    ScanState(const DriverApi& api, const std::vector<Variable>& variables, bool multiStation, int defaultStation);

    // On the communication thread.
    void onResult(const RequestResult& result);
    void onStation(int station, bool off);

    std::vector<ElementStatus> snapshot() const;
    ElementStatus element(size_t index) const;
    // Results seen so far; an element whose lastResult is above this number
    // taken earlier has been read (or failed) since.
    uint64_t resultCount() const;
    // Returns when the next result arrives, or after the timeout.
    void waitForResult(std::chrono::milliseconds timeout) const;

private:
    struct Element {
        ElementStatus status;
        Variable var;
        int index;    // within the variable
        int station;
        int area;
        int address;  // driver address of the element's first bit or word
        int span;     // bits or words it covers
    };

    const DriverApi& api_;
    const bool multiStation_;
    mutable std::mutex mutex_;
    mutable std::condition_variable resultArrived_;
    uint64_t results_ = 0;
    std::vector<Element> elements_;

    bool covers(const Element& element, const RequestResult& result) const;
    void refreshValue(Element* element) const;
};

}  // namespace logohost

#endif  // LOGOHOST_SCAN_STATE_H
