#include "host/model/journal.h"

namespace logohost {

JournalEntry journalEntry(const ActionRecord& action, int64_t atMs)
{
    JournalEntry entry;
    entry.atMs = atMs;
    entry.kind = action.kind;
    entry.who = action.who;
    entry.subject = action.subject;
    entry.value = action.value;
    entry.outcome = action.result.message;
    entry.ok = action.result.outcome == Outcome::Done;
    return entry;
}

LinkJournal::LinkJournal(HistoryStore& history, std::vector<std::string> controllerNames)
    : history_(history), names_(std::move(controllerNames)), lost_(names_.size(), false)
{
}

// Only a loss and the return after it: the first connection is no event.
void LinkJournal::onHealth(size_t controller, const LinkHealth& health, int64_t atMs)
{
    const bool lost = health.state == LinkState::Down;
    if (controller >= lost_.size() || lost == lost_[controller] || health.state == LinkState::Connecting)
        return;
    lost_[controller] = lost;
    JournalEntry entry;
    entry.atMs = atMs;
    entry.kind = "link";
    entry.subject = names_[controller];
    entry.outcome = lost ? "controller lost: " + health.cause : "controller back";
    entry.ok = !lost;
    history_.addJournal(entry);
}

}  // namespace logohost
