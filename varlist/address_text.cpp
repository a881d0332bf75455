#include "varlist/address_text.h"

#include <QStringList>

#include "logo_modbus_tcp.h"

namespace {

// Decimal as QString::toInt reads it (sign, digits, C locale); anything
// else, or a value outside 32 bits, is 0.
int decimal(const QString& text)
{
    bool ok = false;
    const int value = text.toInt(&ok, 10);
    return ok ? value : 0;
}

}  // namespace

int StringAddressToInt(int area, QString addressText)
{
    if (area != AREA_V)
        return decimal(addressText);
    if (!addressText.contains(QLatin1Char('.')))
        return -1;
    const QStringList parts = addressText.split(QLatin1Char('.'));
    // Neither part is range-tested: bit 9 runs on into the next byte. The
    // sum wraps like the 32-bit arithmetic the host expects.
    const unsigned byteNumber = static_cast<unsigned>(decimal(parts.at(0)));
    const unsigned bitNumber = static_cast<unsigned>(decimal(parts.at(1)));
    return static_cast<int>(byteNumber * 8u + bitNumber);
}

int PLCAddressChangeIntef(int area, QString addressText) { return StringAddressToInt(area, addressText); }
