#pragma once

#include <QString>

#include <atomic>

// What a stream copy made of a file.
struct RemuxResult {
    bool finished = false;     // header and trailer written: the output is a whole file
    qint64 packetsRead = 0;    // audio and video packets read from the input
    qint64 packetsWritten = 0; // of those, the packets the muxer took

    bool Complete() const { return finished && packetsWritten == packetsRead; }
};

// Copies the audio and video packets of `input`, unchanged, into `output`: a new file of the
// container its name asks for, with an index written by libavformat. Packets the muxer refuses are
// left out and the copy goes on; a read error ends the input as its end does. A raised `stop` ends
// the copy early, unfinished.
RemuxResult Remux(const QString &input, const QString &output, const std::atomic<bool> *stop = nullptr);
