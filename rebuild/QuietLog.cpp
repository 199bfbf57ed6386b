#include "rebuild/QuietLog.h"

extern "C" {
#include <libavutil/log.h>
}

#include <algorithm>
#include <mutex>
#include <vector>

namespace {

std::mutex &Lock()
{
    static std::mutex lock;
    return lock;
}

std::vector<const void *> &Silenced()
{
    static std::vector<const void *> contexts;
    return contexts;
}

void Filter(void *avcl, int level, const char *format, va_list args)
{
    {
        std::lock_guard<std::mutex> guard(Lock());
        const std::vector<const void *> &s = Silenced();
        if (avcl && std::find(s.begin(), s.end(), avcl) != s.end())
            return;
    }
    av_log_default_callback(avcl, level, format, args);
}

} // namespace

namespace QuietLog {

void Silence(const void *context)
{
    static std::once_flag installed;
    std::call_once(installed, [] { av_log_set_callback(Filter); });
    std::lock_guard<std::mutex> guard(Lock());
    Silenced().push_back(context);
}

void Restore(const void *context)
{
    std::lock_guard<std::mutex> guard(Lock());
    std::vector<const void *> &s = Silenced();
    s.erase(std::remove(s.begin(), s.end(), context), s.end());
}

} // namespace QuietLog
