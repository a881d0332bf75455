// Why a request failed, in the order an operator needs it: what happened
// in plain words first, the driver's code last.
#ifndef LOGOHOST_FAILURE_TEXT_H
#define LOGOHOST_FAILURE_TEXT_H

#include <string>

namespace logohost {

// What the host knows of a request the driver gave up.
struct RequestFailure {
    int returnCode = 0;
    int exceptionCode = 0;  // the Modbus exception of its last reply, 0 if none
    std::string refusal;    // why the host refused its last reply, if it did
    std::string cause;      // why its last exchange got no reply ("connection refused")
};

// "the controller did not answer (connection refused)",
// "the controller answered illegal data address (Modbus exception 02)",
// "the reply was refused: reply from unit 2 to a request for unit 1";
// with a subject: "the controller did not answer Q2 (connection refused)".
std::string failureWords(const RequestFailure& failure, const std::string& subject = std::string());
// The code that goes after the words: "driver code 41".
std::string driverCodeText(int returnCode);
// Both: "the controller did not answer (connection refused; driver code 41)".
std::string failureText(const RequestFailure& failure, const std::string& subject = std::string());

}  // namespace logohost

#endif  // LOGOHOST_FAILURE_TEXT_H
