// What the journal keeps: every operator action (refusals included) and
// every time a controller was lost or came back.
#ifndef LOGOHOST_JOURNAL_H
#define LOGOHOST_JOURNAL_H

#include <string>
#include <vector>

#include "host/binding/link_health.h"
#include "host/history/history_store.h"
#include "host/model/operator_actions.h"

namespace logohost {

JournalEntry journalEntry(const ActionRecord& action, int64_t atMs);

// Tells the journal of each controller lost (with the cause) and back,
// from the changes of its link's state.
class LinkJournal {
public:
    LinkJournal(HistoryStore& history, std::vector<std::string> controllerNames);
    void onHealth(size_t controller, const LinkHealth& health, int64_t atMs);

private:
    HistoryStore& history_;
    const std::vector<std::string> names_;
    std::vector<bool> lost_;
};

}  // namespace logohost

#endif  // LOGOHOST_JOURNAL_H
