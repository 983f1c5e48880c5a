#include "support/TmpfsMount.h"

#include <QByteArray>
#include <QDir>
#include <QFile>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

namespace kestil::test {

namespace {

bool writeProcFile(const char *path, const QByteArray &text)
{
    const int fd = ::open(path, O_WRONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool written = ::write(fd, text.constData(), size_t(text.size())) == text.size();
    ::close(fd);
    return written;
}

// Where the process may not mount (a container without the capability, a
// user who is not root), a user namespace of its own gives it that right over
// its own mounts only. Only a process with one thread may enter one, which a
// test process is until it starts a worker.
bool enterOwnMountNamespace(QString &why)
{
    const QByteArray uid = QByteArray::number(::getuid());
    const QByteArray gid = QByteArray::number(::getgid());
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
        why = QStringLiteral("and no user namespace either: ") + QString::fromLocal8Bit(std::strerror(errno));
        return false;
    }
    writeProcFile("/proc/self/setgroups", "deny");
    if (!writeProcFile("/proc/self/uid_map", "0 " + uid + " 1") ||
        !writeProcFile("/proc/self/gid_map", "0 " + gid + " 1")) {
        why = QStringLiteral("and the user namespace could not map this user");
        return false;
    }
    return true;
}

} // namespace

TmpfsMount::TmpfsMount(qint64 bytes, std::optional<int> inodes)
{
    QByteArray pattern = QFile::encodeName(QDir::tempPath() + QStringLiteral("/kestil-tmpfs-XXXXXX"));
    if (!::mkdtemp(pattern.data())) {
        error_ = QStringLiteral("mkdtemp: ") + QString::fromLocal8Bit(std::strerror(errno));
        return;
    }
    path_ = QFile::decodeName(pattern);
    QByteArray options = "size=" + QByteArray::number(bytes) + ",mode=0755";
    if (inodes)
        options += ",nr_inodes=" + QByteArray::number(*inodes);
    const auto mountTmpfs = [&] {
        return ::mount("tmpfs", pattern.constData(), "tmpfs", MS_NOSUID | MS_NODEV, options.constData()) == 0;
    };
    if (!mountTmpfs()) {
        const int mountError = errno;
        error_ = QStringLiteral("mounting a tmpfs needs the right to mount (") +
                 QString::fromLocal8Bit(std::strerror(mountError)) + QStringLiteral(") ");
        QString why;
        if (mountError != EPERM || !enterOwnMountNamespace(why) || !mountTmpfs()) {
            error_ += why.isEmpty() ? QString::fromLocal8Bit(std::strerror(errno)) : why;
            return;
        }
        error_.clear();
    }
    mounted_ = true;
}

TmpfsMount::~TmpfsMount()
{
    if (mounted_)
        ::umount2(QFile::encodeName(path_).constData(), MNT_DETACH);
    if (!path_.isEmpty())
        QDir(path_).removeRecursively();
}

} // namespace kestil::test
