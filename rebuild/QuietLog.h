#pragma once

// FFmpeg's log is process-wide. The rebuild decodes many stretches that are not frames on purpose,
// and the decoder would complain about each; a context registered here logs nothing while the rest
// of the program's FFmpeg objects log as before.
namespace QuietLog {

void Silence(const void *context);
void Restore(const void *context);

} // namespace QuietLog
