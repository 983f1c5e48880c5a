#include "support/TmpfsMount.h"

#include <QByteArray>
#include <QDir>
#include <QFile>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <sys/mount.h>

namespace kestil::test {

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
    if (::mount("tmpfs", pattern.constData(), "tmpfs", MS_NOSUID | MS_NODEV, options.constData()) != 0) {
        error_ = QStringLiteral("mounting a tmpfs needs the right to mount: ") +
                 QString::fromLocal8Bit(std::strerror(errno));
        return;
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
