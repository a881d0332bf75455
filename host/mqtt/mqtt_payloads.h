// What the bridge's messages carry, in JSON.
//
// A state is one JSON message, not a value with its quality and times on
// sibling topics: a subscriber must never see a new value beside the
// previous quality, and separate retained messages arrive one by one. It
// reads as the panel's API reads an item:
//
//   {"value": 54.2, "text": "54.2", "quality": "ok", "why": "",
//    "updatedAt": "2026-11-24T05:02:36.646Z", "changedAt": "2026-11-24T05:02:36.646Z"}
//
// value: shown units rounded to the item's decimals, 1 or 0 for a bit, null
// before the first read; text: as the panel shows it ("12.5", a bit's on or
// off text), null before the first read; quality: ok, stale, no-reply,
// refused, failed, station-off or never-read, with why in words for any
// but ok; updatedAt: the last good read when the message was made;
// changedAt: when the value last changed. A state is sent when its value,
// quality or why changes, not at every read: the quality is what says the
// value is still current, and it is sent as soon as it stops being so.
#ifndef LOGOHOST_MQTT_PAYLOADS_H
#define LOGOHOST_MQTT_PAYLOADS_H

#include <string>

#include "host/alarms/alarm_board.h"
#include "host/model/operator_actions.h"
#include "host/model/screens_file.h"

namespace logohost {

std::string statePayload(const PanelItem& item, const ElementStatus& element);
// What a new state must differ in to be sent again.
std::string stateKey(const ElementStatus& element);

// {"id", "text", "class", "var", "state", "since", "raisedAt", "acknowledged",
//  "acknowledgedBy", "acknowledgedAt", "why"}: the panel's alarm without the
// value, which would resend the alarm at every change of its variable.
std::string alarmPayload(const AlarmStatus& alarm);

// {"value": the set's payload as given, "ok": true only when the controller
// confirmed the write, "outcome": "done", "bad request", "replaced", ...,
// "message": the panel's words, "at": ISO time}
std::string resultPayload(const std::string& value, const ActionResult& result, int64_t atMs);

}  // namespace logohost

#endif  // LOGOHOST_MQTT_PAYLOADS_H
