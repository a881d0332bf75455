// `watch`: the cyclic scan, shown live on a terminal or as one line per
// interval otherwise.
#include <unistd.h>

#include <cstdio>
#include <deque>
#include <mutex>

#include "host/commands/commands.h"
#include "host/commands/interrupt.h"
#include "host/commands/output_format.h"

namespace logohost {
namespace {

constexpr size_t kEventsShown = 3;
const char* const kHideCursor = "\x1b[?25l";
const char* const kShowCursor = "\x1b[?25h";
const char* const kClearToEnd = "\x1b[J";

// Station reports: printed at once on a pipe, kept for the live table on a
// terminal (a stray line would break the redraw in place).
class EventLog {
public:
    explicit EventLog(bool keep) : keep_(keep) {}
    void add(const std::string& message)
    {
        if (!keep_) {
            std::fprintf(stderr, "logohost: %s\n", message.c_str());
            return;
        }
        const std::lock_guard<std::mutex> lock(mutex_);
        events_.push_back(message);
        if (events_.size() > kEventsShown)
            events_.pop_front();
    }
    std::deque<std::string> recent() const
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        return events_;
    }

private:
    const bool keep_;
    mutable std::mutex mutex_;
    std::deque<std::string> events_;
};

class LiveScreen {
public:
    LiveScreen() { std::fputs(kHideCursor, stdout); }
    ~LiveScreen()
    {
        std::fputs(kShowCursor, stdout);
        std::fflush(stdout);
    }
    void draw(const std::vector<std::string>& lines)
    {
        std::string text;
        if (drawn_ > 0)
            text += "\x1b[" + std::to_string(drawn_) + "A\r";
        text += kClearToEnd;
        for (const std::string& line : lines)
            text += line + "\n";
        std::fputs(text.c_str(), stdout);
        std::fflush(stdout);
        drawn_ = lines.size();
    }

private:
    size_t drawn_ = 0;
};

// The exit status agrees with the last line shown: each variable whose
// value was not current in it is named, once, with why.
bool allShownGood(const std::vector<Variable>& variables, const std::vector<ElementStatus>& shown)
{
    std::vector<bool> named(variables.size(), false);
    bool good = true;
    for (const ElementStatus& element : shown) {
        if (element.quality == Quality::Ok || named.at(static_cast<size_t>(element.variable)))
            continue;
        named[static_cast<size_t>(element.variable)] = true;
        good = false;
        complain(variables[static_cast<size_t>(element.variable)].text + ": " + qualityWords(element) +
                 ", when the watch ended");
    }
    return good;
}

}  // namespace

int runWatch(CommandContext& context)
{
    const Options& options = context.options;
    const bool terminal = isatty(STDOUT_FILENO) == 1;
    EventLog events(terminal);
    std::vector<Variable> variables;
    const std::unique_ptr<Session> scan =
        startScan(context, true, [&events](int, bool, const std::string& note) { events.add(note); }, &variables);
    if (!scan)
        return kExitUsage;
    Session& session = *scan;

    const std::string title = "logohost watch, controller " + context.links.describe();
    std::unique_ptr<LiveScreen> screen(terminal ? new LiveScreen : nullptr);
    if (!terminal) {
        std::fputs(scanHeader(session.elements(), options.format).c_str(), stdout);
        std::fflush(stdout);
    }
    const bool forever = options.durationSeconds <= 0;
    const auto end = std::chrono::steady_clock::now() + milliseconds(options.durationSeconds);
    const auto interval = milliseconds(options.intervalSeconds);
    std::vector<ElementStatus> elements;
    for (;;) {
        const auto left = end - std::chrono::steady_clock::now();
        const bool last = !forever && left <= interval;
        const bool uninterrupted =
            sleepUnlessInterrupted(last ? std::chrono::ceil<std::chrono::milliseconds>(left) : interval);
        const LinkFigures link = session.figures();
        elements = session.elements();
        if (screen) {
            std::vector<std::string> lines = liveTable(elements, link, title);
            for (const std::string& event : events.recent())
                lines.push_back(event);
            screen->draw(lines);
        } else {
            std::fputs(scanLine(elements, link, options.format).c_str(), stdout);
            std::fflush(stdout);
        }
        if (last || !uninterrupted)
            break;
    }
    session.stop();
    return allShownGood(variables, elements) ? kExitOk : kExitFailed;
}

}  // namespace logohost
