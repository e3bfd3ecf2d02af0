#include "startlead.h"

#include <algorithm>

void StartLead::add(qint64 ms)
{
    if (ms < 0 || ms > maxMs)
        return;
    m_leads[size_t(m_next)] = ms;
    m_next = (m_next + 1) % kept;
    m_count = std::min(m_count + 1, kept);
}

qint64 StartLead::estimateMs() const
{
    if (m_count == 0)
        return typicalMs;
    std::array<qint64, kept> sorted = m_leads;
    std::sort(sorted.begin(), sorted.begin() + m_count);
    return sorted[size_t(m_count / 2)];
}
