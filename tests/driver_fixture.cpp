#include "driver_fixture.h"

namespace {

// For a read 9 header bytes and dataLength bytes of data, for a write 12 bytes.
QByteArray replyTo(const Protocol& frame, const Answer& answer)
{
    if (answer.kind == Answer::Timeout || answer.kind == Answer::NullReply)
        return QByteArray();
    QByteArray reply = frame.frame.left(12);  // a write reply echoes the request
    if (frame.var.rwType != 1) {
        const int n = frame.dataLength;
        reply = frame.frame.left(4) + char((3 + n) >> 8) + char(3 + n) + frame.frame.mid(6, 2) + char(n) +
                answer.data.leftJustified(n, '\0', true);
    }
    return answer.kind == Answer::WrongLength ? reply + '\0' : reply;
}

}  // namespace

Exchange FakeController::step()
{
    const Protocol* p = ComCommunication();
    if (p == nullptr)
        return Exchange();
    const int list = PLC_driver.currentList;
    Exchange e{true, list >= 0 && list <= 2 ? "CWO"[list] : '?', p->var, p->frame};
    const Answer answer = next < script.size() ? script[next++] : Answer{Answer::Good, QByteArray()};
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
