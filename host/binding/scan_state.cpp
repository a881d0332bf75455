#include "host/binding/scan_state.h"

#include "host/notation/reply_words.h"
#include "host/link/trace.h"
#include "host/notation/value_codec.h"

namespace logohost {

std::string stateText(const ElementStatus& element)
{
    switch (element.state) {
    case ElementState::NeverRead: return "never read";
    case ElementState::Ok: return "ok";
    case ElementState::StationOff: return "station off";
    case ElementState::Failed: break;
    }
    if (isNoReplyCode(element.returnCode))
        return element.refusal.empty() ? "no reply" : "refused: " + element.refusal;
    if (element.exceptionCode && isBadLengthCode(element.returnCode))
        return exceptionName(element.exceptionCode);
    return isBadLengthCode(element.returnCode) ? "wrong reply length" : "bad reply";
}

QList<HOSTVAR> hostVariables(const std::vector<Variable>& variables, int defaultStation)
{
    QList<HOSTVAR> list;
    for (const Variable& var : variables) {
        HOSTVAR entry{};
        entry.area = static_cast<unsigned char>(driverArea(var.kind));
        entry.station = static_cast<unsigned char>(var.station == kNoStation ? defaultStation : var.station);
        entry.addressText = QString::fromStdString(driverAddressText(var));
        entry.auxText = QString::fromStdString(var.text);
        entry.count = driverCount(var);
        list.append(entry);
    }
    return list;
}

ScanState::ScanState(const DriverApi& api, const std::vector<Variable>& variables, bool multiStation,
                     int defaultStation)
    : api_(api), multiStation_(multiStation)
{
    for (size_t v = 0; v < variables.size(); ++v) {
        const Variable& var = variables[v];
        for (int i = 0; i < var.count; ++i) {
            Element element;
            element.status.name = elementName(var, i, multiStation);
            element.status.variable = static_cast<int>(v);
            element.var = var;
            element.index = i;
            element.station = var.station == kNoStation ? defaultStation : var.station;
            element.area = driverArea(var.kind);
            element.address = driverAddress(var, i);
            element.span = isBitKind(var.kind) ? 1 : wordsPerElement(var.kind);
            elements_.push_back(element);
        }
    }
}

bool ScanState::covers(const Element& element, const RequestResult& result) const
{
    if (result.rwType != 0 || result.area != element.area || (multiStation_ && result.station != element.station))
        return false;
    return element.address < result.address + result.count && result.address < element.address + element.span;
}

void ScanState::refreshValue(Element* element) const
{
    QByteArray data;
    const QString addressText = QString::fromStdString(driverAddressText(element->var, element->index));
    if (!api_.getRegisterData(QString(), element->area, addressText, element->station, data, element->span))
        return;
    const std::vector<uint8_t> bytes(data.begin(), data.end());
    const std::string value = formatValue(unpackValues(element->var.kind, bytes, 1).front(), valueTypeOf(element->var.kind));
    ElementStatus& status = element->status;
    if (!status.hasValue || status.value != value)
        status.changedAt = clockText(false);
    status.hasValue = true;
    status.value = value;
}

void ScanState::onResult(const RequestResult& result)
{
    std::lock_guard<std::mutex> lock(mutex_);
    ++results_;
    resultArrived_.notify_all();
    if (result.returnCode == 0)
        return;  // the same frame comes again
    for (Element& element : elements_) {
        if (!covers(element, result))
            continue;
        ElementStatus& status = element.status;
        status.lastResult = results_;
        if (isSuccessCode(result.returnCode)) {
            status.state = ElementState::Ok;
            status.failuresInRow = 0;
            refreshValue(&element);
        } else {
            status.state = ElementState::Failed;
            status.returnCode = result.returnCode;
            status.exceptionCode = result.exceptionCode;
            status.refusal = result.refusal;
            ++status.failuresInRow;
        }
    }
}

void ScanState::onStation(int station, bool off)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    for (Element& element : elements_)
        if (element.station == station && (off || element.status.state == ElementState::StationOff))
            element.status.state = off ? ElementState::StationOff
                                       : element.status.returnCode ? ElementState::Failed
                                       : element.status.hasValue   ? ElementState::Ok
                                                                   : ElementState::NeverRead;
}

std::vector<ElementStatus> ScanState::snapshot() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<ElementStatus> statuses;
    for (const Element& element : elements_)
        statuses.push_back(element.status);
    return statuses;
}

ElementStatus ScanState::element(size_t index) const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return index < elements_.size() ? elements_[index].status : ElementStatus();
}

uint64_t ScanState::resultCount() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return results_;
}

void ScanState::waitForResult(std::chrono::milliseconds timeout) const
{
    std::unique_lock<std::mutex> lock(mutex_);
    const uint64_t seen = results_;
    resultArrived_.wait_for(lock, timeout, [this, seen] { return results_ != seen; });
}


}  // namespace logohost
