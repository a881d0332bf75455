// A scripted controller on the far side of the driver's communication loop:
// it asks the driver for the next frame, answers it as told, and records what
// went out and which code came back.
#ifndef LOGO_TESTS_FAKE_CONTROLLER_H
#define LOGO_TESTS_FAKE_CONTROLLER_H

#include <string>
#include <vector>

#include "driver_fixture.h"

struct Answer {
    enum Kind { Good, WrongLength, Timeout, NullReply } kind;
    QByteArray data;  // data of a good read reply; missing bytes are 0
};

struct Exchange {
    bool sent = false;      // false: ComCommunication had nothing to send
    char list = '-';        // the list the driver chose: 'W' write, 'O' one-shot, 'C' cyclic
    RW_VAR var = RW_VAR();  // the record the frame was built from
    QByteArray frame;
    int code = -1;
    RW_VAR result = RW_VAR();
};

class FakeController {
public:
    explicit FakeController(std::vector<Answer> script = {}) : script_(std::move(script)) {}
    // One ComCommunication and, when a frame came, its answer through DataCom;
    // good answers once the script is used up.
    Exchange step();
    std::vector<Exchange> run(int steps);
    // For a read 9 header bytes and dataLength bytes of data, for a write 12 bytes.
    static QByteArray replyTo(const Protocol& frame, const Answer& answer);

private:
    std::vector<Answer> script_;
    size_t next_ = 0;
};

std::string describe(const RW_VAR& v);  // "area:address:count@station"
// describe() of each frame sent, "-" where nothing was sent; or only the
// list each came from ("WWOC-").
std::string targets(const std::vector<Exchange>& exchanges, bool listsOnly = false);

HOSTVAR hostVar(int area, const char* addressText, int count, int station = 1, const char* auxText = "");
inline int rebuild(QList<HOSTVAR> vars) { return ReCreatReadVarList(&vars); }

// Names the instances of a table-driven test after their rows.
inline const auto rowName = [](const auto& info) { return std::string(info.param.name); };

#endif  // LOGO_TESTS_FAKE_CONTROLLER_H
