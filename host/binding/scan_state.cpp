#include "host/binding/scan_state.h"

#include "host/notation/return_codes.h"
#include "host/notation/time_text.h"
#include "host/notation/value_codec.h"

namespace logohost {
namespace {

// The quality of a request that failed, and its words.
Quality failedQuality(const RequestFailure& failure, std::string* why)
{
    if (isNoReplyCode(failure.returnCode) && !failure.refusal.empty()) {
        *why = "refused: " + failure.refusal;
        return Quality::Refused;
    }
    if (isNoReplyCode(failure.returnCode)) {
        *why = "no reply" + (failure.cause.empty() ? "" : ": " + failure.cause);
        return Quality::NoReply;
    }
    *why = failureWords(failure);
    return Quality::Failed;
}

}  // namespace

const char* qualityName(Quality quality)
{
    switch (quality) {
    case Quality::NeverRead: return "never-read";
    case Quality::Ok: return "ok";
    case Quality::Stale: return "stale";
    case Quality::NoReply: return "no-reply";
    case Quality::Refused: return "refused";
    case Quality::Failed: return "failed";
    case Quality::StationOff: return "station-off";
    }
    return "?";
}

std::string qualityWords(const ElementStatus& element)
{
    switch (element.quality) {
    case Quality::Ok: return "ok";
    case Quality::NeverRead: return "never read";
    case Quality::StationOff: return "station off";
    case Quality::Stale: return "stale: " + element.why;
    default: return element.why;
    }
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
                     int defaultStation, ScanTiming timing, ControllerOf controllerOf)
    : api_(api), multiStation_(multiStation), timing_(std::move(timing))
{
    for (size_t v = 0; v < variables.size(); ++v) {
        const Variable& var = variables[v];
        for (int i = 0; i < var.count; ++i) {
            Element element;
            element.status.name = elementName(var, i, multiStation);
            element.status.variable = static_cast<int>(v);
            element.status.station = var.station == kNoStation ? defaultStation : var.station;
            element.status.controller = controllerOf ? controllerOf(element.status.station) : 0;
            element.var = var;
            element.index = i;
            element.area = driverArea(var.kind);
            element.address = driverAddress(var, i);
            element.span = isBitKind(var.kind) ? 1 : wordsPerElement(var.kind);
            elements_.push_back(element);
        }
    }
}

bool ScanState::covers(const Element& element, const RequestResult& result) const
{
    if (result.rwType != RW_READ || result.area != element.area || (multiStation_ && result.station != element.status.station))
        return false;
    return element.address < result.address + result.count && result.address < element.address + element.span;
}

void ScanState::refreshValue(Element* element) const
{
    QByteArray data;
    const QString addressText = QString::fromStdString(driverAddressText(element->var, element->index));
    if (!api_.getRegisterData(QString(), element->area, addressText, element->status.station, data, element->span))
        return;
    const std::vector<uint8_t> bytes(data.begin(), data.end());
    const Kind kind = element->var.kind;
    const int64_t value = signedValue(unpackValues(kind, bytes, 1).front(), valueTypeOf(kind));
    ElementStatus& status = element->status;
    status.readAtMs = timing_.wallMs();
    element->readAt = timing_.now();
    if (!status.hasValue || status.value != value)
        status.changedAtMs = status.readAtMs;
    status.hasValue = true;
    status.value = value;
}

void ScanState::onResult(const RequestResult& result)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    ++results_;
    if (result.returnCode == RC_RETRYING)
        return;  // the same frame comes again
    for (Element& element : elements_) {
        if (!covers(element, result))
            continue;
        ElementStatus& status = element.status;
        status.lastResult = results_;
        element.lastFailed = !isSuccessCode(result.returnCode);
        if (element.lastFailed) {
            status.failure = result.failure;
            ++status.failuresInRow;
        } else {
            status.failuresInRow = 0;
            refreshValue(&element);
        }
    }
}

void ScanState::onStation(int station, bool off)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    for (Element& element : elements_)
        if (element.status.station == station)
            element.stationOff = off;
}

ElementStatus ScanState::judged(const Element& element, const LinkHealth& health) const
{
    ElementStatus status = element.status;
    std::string& why = status.why;
    const bool down = health.state == LinkState::Down;
    status.unreachable = unreachable(health);
    status.linkCause = down ? health.cause : "";
    if (element.stationOff) {
        status.quality = Quality::StationOff;
        why = "station " + std::to_string(status.station) + " is switched off";
    } else if (element.lastFailed) {
        status.quality = failedQuality(status.failure, &why);
    } else if (!status.hasValue) {
        status.quality = down ? Quality::NoReply : Quality::NeverRead;
        why = down ? "no reply: " + health.cause : "not read yet";
    } else if (down) {
        status.quality = Quality::Stale;
        why = "not answering: " + health.cause;
    } else if (timing_.now() - element.readAt > timing_.staleAfter) {
        status.quality = Quality::Stale;
        why = "not read again within " + secondsText(timing_.staleAfter);
    } else {
        status.quality = Quality::Ok;
        why.clear();
    }
    return status;
}

bool ScanState::fresh(int station, int area, int address, int count, std::chrono::milliseconds maxAge,
                      const HealthOf& health) const
{
    if (health(station).state != LinkState::Ok)
        return false;
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto now = timing_.now();
    for (int at = address; at < address + count; ++at) {
        bool covered = false;
        for (const Element& element : elements_) {
            if (element.area != area || element.status.station != station || at < element.address ||
                at >= element.address + element.span)
                continue;
            covered = element.status.hasValue && !element.lastFailed && !element.stationOff &&
                      now - element.readAt <= maxAge;
            if (covered)
                break;
        }
        if (!covered)
            return false;
    }
    return true;
}

std::vector<ElementStatus> ScanState::snapshot(const HealthOf& health) const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<ElementStatus> statuses;
    statuses.reserve(elements_.size());
    for (const Element& element : elements_)
        statuses.push_back(judged(element, health(element.status.station)));
    return statuses;
}

ElementStatus ScanState::element(size_t index, const HealthOf& health) const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    if (index >= elements_.size())
        return ElementStatus();
    return judged(elements_[index], health(elements_[index].status.station));
}

uint64_t ScanState::resultCount() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return results_;
}

}  // namespace logohost
