#pragma once

#include <QString>

#include <optional>

namespace kestil {

// Where the notes live: on this computer only, or mirrored to the user's
// private cloud database under a container identifier. Fixed at launch. No
// Linux build carries a container identifier, so the running program is
// always local-only; the mode stays so that the choice remains explicit.
class NoteSyncMode {
public:
    static NoteSyncMode localOnly() { return NoteSyncMode(std::nullopt); }
    static NoteSyncMode privateCloud(QString containerIdentifier)
    {
        return NoteSyncMode(std::move(containerIdentifier));
    }

    bool isLocalOnly() const { return !containerIdentifier_; }
    const std::optional<QString> &containerIdentifier() const { return containerIdentifier_; }
    friend bool operator==(const NoteSyncMode &, const NoteSyncMode &) = default;

private:
    explicit NoteSyncMode(std::optional<QString> id) : containerIdentifier_(std::move(id)) {}
    std::optional<QString> containerIdentifier_;
};

} // namespace kestil
