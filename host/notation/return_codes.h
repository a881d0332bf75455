// The driver's return codes, sorted into what they mean to the host.
#ifndef LOGOHOST_RETURN_CODES_H
#define LOGOHOST_RETURN_CODES_H

namespace logohost {

bool isSuccessCode(int returnCode);
// A failure after the retries ran out (not success, not "will be repeated").
bool isFinalFailure(int returnCode);
// A final failure whose reply was there but of the wrong length; an
// exception reply is one.
bool isBadLengthCode(int returnCode);
bool isNoReplyCode(int returnCode);

}  // namespace logohost

#endif  // LOGOHOST_RETURN_CODES_H
