#pragma once

#include <QtGlobal>

// Keeps the scan of one file finite. Some damaged layouts send the scan back to positions it has
// already read (a "ftyp" at offset 0, a zero-sized "ctts" with no colour box before it), and followed
// literally it would run for ever. The guard watches the sequence of positions with Brent's cycle
// detection in constant memory and ends the scan once the same round has come back twice; as a
// backstop it also ends any scan after fileSize / 4 + 64 steps. A scan that never comes back to a
// position it read, and stays under the backstop, is never cut short.
class ScanGuard
{
public:
    explicit ScanGuard(quint64 fileSize);

    // Called before each read; false means the scan of this file must end here.
    bool Admit(quint64 position);

    static constexpr int RepeatsBeforeStop = 2;

private:
    quint64 m_limit;
    quint64 m_steps = 0;
    quint64 m_saved = 0;
    quint64 m_power = 1;
    quint64 m_length = 0;
    int m_repeats = 0;
};
