#pragma once

#include <QList>
#include <QString>

namespace kestil {

// How the tags chosen in the filter combine: a note with at least one of them,
// or a note with every one.
enum class TagMatchMode { any, all };

inline const QList<TagMatchMode> &allTagMatchModes()
{
    static const QList<TagMatchMode> all{TagMatchMode::any, TagMatchMode::all};
    return all;
}

QString tagMatchModeLabel(TagMatchMode mode);
QString tagMatchModeHelp(TagMatchMode mode);
QString tagMatchModeRawValue(TagMatchMode mode);

} // namespace kestil
