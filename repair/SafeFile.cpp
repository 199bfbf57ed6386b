#include "repair/SafeFile.h"

#include <fcntl.h>
#include <unistd.h>

FILE *OpenExistingNoFollow(const QByteArray &path)
{
    const int fd = open(path.constData(), O_RDWR | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
        return nullptr;
    FILE *f = fdopen(fd, "rb+");
    if (!f)
        close(fd);
    return f;
}

int CreateFreshDescriptor(const QByteArray &path)
{
    unlink(path.constData());
    return open(path.constData(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
}

FILE *CreateFresh(const QByteArray &path)
{
    const int fd = CreateFreshDescriptor(path);
    if (fd < 0)
        return nullptr;
    FILE *f = fdopen(fd, "w+");
    if (!f)
        close(fd);
    return f;
}
