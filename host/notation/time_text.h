// Times and durations as the host writes them: on a terminal, in files a
// spreadsheet reads, and in the panel's JSON.
#ifndef LOGOHOST_TIME_TEXT_H
#define LOGOHOST_TIME_TEXT_H

#include <chrono>
#include <cstdint>
#include <string>

namespace logohost {

// "0.5 s", "10 s"
std::string secondsText(std::chrono::milliseconds duration);
// Local wall-clock time now, "14:03:07.123" or "14:03:07.123456".
std::string clockText(bool microseconds);
// The same for a time in milliseconds since the epoch, "14:03:07.123".
std::string clockTextOf(int64_t epochMs);
// "2024-05-01T14:03:07.123" in local time, for CSV files a spreadsheet reads.
std::string localTimestamp(int64_t epochMs);
// "2026-11-24T03:24:42.123Z", for the API.
std::string isoTime(int64_t epochMs);
// The same back, with or without milliseconds, "Z" or an offset
// ("+01:00"); false for anything else.
bool parseIsoTime(const std::string& text, int64_t* epochMs);

}  // namespace logohost

#endif  // LOGOHOST_TIME_TEXT_H
