#pragma once

#include <QProgressBar>
#include <QString>
#include <QWidget>

#include <algorithm>

namespace kestil {

// Gives a widget the identifier that tests and assistive technology find it
// by: its object name and its accessible name.
template <typename T> T *named(T *widget, const QString &identifier)
{
    widget->setObjectName(identifier);
    widget->setAccessibleName(identifier);
    return widget;
}

// Shows a download's progress. The range is in kilobytes: a model of several
// gigabytes does not fit an int in bytes. An unknown total shows as busy.
inline void showProgress(QProgressBar *bar, qint64 received, qint64 total)
{
    if (total <= 0) {
        bar->setRange(0, 0);
        return;
    }
    bar->setRange(0, int(total / 1024));
    bar->setValue(int(std::min(received, total) / 1024));
}

} // namespace kestil
