#pragma once

#include <QString>

#include <optional>

namespace kestil::test {

// A small tmpfs mounted on a fresh folder, for tests of a full disk. Needs
// the right to mount (root, as the test machines run); without it mounted()
// is false and error() says why.
class TmpfsMount {
public:
    explicit TmpfsMount(qint64 bytes, std::optional<int> inodes = std::nullopt);
    // Unmounts and removes the folder.
    ~TmpfsMount();

    TmpfsMount(const TmpfsMount &) = delete;
    TmpfsMount &operator=(const TmpfsMount &) = delete;

    bool mounted() const { return mounted_; }
    const QString &error() const { return error_; }
    const QString &path() const { return path_; }

private:
    QString path_;
    QString error_;
    bool mounted_ = false;
};

} // namespace kestil::test

// Skips the rest of a test, visibly and with the reason, where no small
// filesystem can be mounted: the full-disk paths cannot be reached otherwise.
#define KESTIL_REQUIRE_MOUNT(disk)                                                                           \
    do {                                                                                                     \
        if (!(disk).mounted())                                                                               \
            GTEST_SKIP() << "no small filesystem for a full disk: " << (disk).error().toStdString();         \
    } while (false)
