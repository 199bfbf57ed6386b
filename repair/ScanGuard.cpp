#include "repair/ScanGuard.h"

ScanGuard::ScanGuard(quint64 fileSize) : m_limit(fileSize / 4 + 64) {}

bool ScanGuard::Admit(quint64 position)
{
    if (++m_steps > m_limit)
        return false;
    if (m_steps > 1 && position == m_saved) {
        // Back at the position saved by Brent's scheme: a round of m_length + 1 steps. A genuine loop
        // keeps coming back here; give it one more round to be sure, then stop.
        if (++m_repeats >= RepeatsBeforeStop)
            return false;
        m_length = 0;
        return true;
    }
    if (++m_length == m_power) {
        m_saved = position;
        m_power *= 2;
        m_length = 0;
        m_repeats = 0;
    }
    return true;
}
