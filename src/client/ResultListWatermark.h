#pragma once

#include "records/PerfResult.h"

// How far a reader has consumed a test's result list, which only grows at its
// front while the test runs. Lets the detail view touch only the new records
// on each refresh instead of all of them.
class ResultListWatermark
{
public:
    // Records put at the front of the list since the last mark; -1 when the
    // list is not the one marked or has changed otherwise (start over).
    qsizetype newRecords(const void *owner, const PerfResultList *list) const
    {
        if (!list || owner != m_owner || list->size() < m_count)
            return -1;
        if (m_count > 0 && list->at(list->size() - m_count) != m_newest)
            return -1;
        return list->size() - m_count;
    }

    void mark(const void *owner, const PerfResultList *list)
    {
        m_owner = owner;
        m_count = list ? list->size() : 0;
        m_newest = m_count > 0 ? list->first() : nullptr;
    }

    void clear() { mark(nullptr, nullptr); }

private:
    const void *m_owner = nullptr; // the test whose list was marked
    qsizetype m_count = 0;         // its length then
    PerfResultPtr m_newest;        // its front record then
};
