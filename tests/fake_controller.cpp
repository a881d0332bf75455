#include "fake_controller.h"

QByteArray FakeController::replyTo(const Protocol& frame, const Answer& answer)
{
    if (answer.kind == Answer::Timeout || answer.kind == Answer::NullReply)
        return QByteArray();
    QByteArray reply = frame.frame.left(12);  // a write reply echoes the request
    if (frame.var.rwType != 1) {
        const int n = frame.dataLength;
        const QByteArray data = answer.data.left(n) + QByteArray(qMax(0, n - answer.data.size()), '\0');
        reply = frame.frame.left(4) + char((3 + n) >> 8) + char(3 + n) + frame.frame.mid(6, 2) + char(n) + data;
    }
    return answer.kind == Answer::WrongLength ? reply + '\0' : reply;
}

Exchange FakeController::step()
{
    Exchange e;
    const Protocol* p = ComCommunication();
    if (p == nullptr)
        return e;
    const int list = PLC_driver.currentList;
    e.sent = true;
    e.list = list >= 0 && list <= 2 ? "CWO"[list] : '?';
    e.var = p->var;
    e.frame = p->frame;
    const Answer answer = next_ < script_.size() ? script_[next_++] : Answer{Answer::Good, QByteArray()};
    QByteArray reply = replyTo(*p, answer);
    // A null reply pointer comes with a nonzero length: the pointer alone must decide.
    const RW_VAR* r = answer.kind == Answer::NullReply ? DataCom(nullptr, p->replyLength) : DataCom(&reply, reply.size());
    e.code = r->returnCode;
    e.result = *r;
    return e;
}

std::vector<Exchange> FakeController::run(int steps)
{
    std::vector<Exchange> done;
    while (steps-- > 0)
        done.push_back(step());
    return done;
}

std::string describe(const RW_VAR& v)
{
    using std::to_string;
    return to_string(v.area) + ':' + to_string(v.address) + ':' + to_string(v.count) + '@' + to_string(v.station);
}

std::string targets(const std::vector<Exchange>& exchanges, bool listsOnly)
{
    std::string text;
    for (const Exchange& e : exchanges)
        text += listsOnly ? std::string(1, e.list) : (text.empty() ? "" : " ") + (e.sent ? describe(e.var) : "-");
    return text;
}

HOSTVAR hostVar(int area, const char* addressText, int count, int station, const char* auxText)
{
    return HOSTVAR{0, static_cast<unsigned char>(area), static_cast<unsigned char>(station), 0, addressText, auxText,
                   count};
}
