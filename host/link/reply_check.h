// The one place that decides whether a reply answers the request in flight.
//
// The driver judges a reply by its length alone; a peer that is not the
// controller, or a stream that has slipped out of step, can send bytes of
// exactly that length that answer something else. Everything the request
// fixes is checked here before the driver sees a byte of the reply.
#ifndef LOGOHOST_REPLY_CHECK_H
#define LOGOHOST_REPLY_CHECK_H

#include <QByteArray>

#include <string>

namespace logohost {

// Why a Modbus/TCP reply does not answer the request as sent; empty when it
// does. An exception reply to the request's function code, with one
// exception code, answers it: the driver refuses it by its length and the
// host names the exception.
std::string modbusReplyProblem(const QByteArray& request, const QByteArray& reply);

// The same for the driver's remote-mode frames, against the reply header the
// remote peer sends (see reply_check.cpp). A header-only error reply answers
// its request as an exception reply does.
std::string remoteReplyProblem(const QByteArray& request, const QByteArray& reply);

}  // namespace logohost

#endif  // LOGOHOST_REPLY_CHECK_H
