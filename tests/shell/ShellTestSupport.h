#pragma once

// The window as the program builds it, on a real store, with a recorder on a
// real file source and the scripted engine of the recorder tests.

#include "capture/recorder/RecorderTestSupport.h"
#include "core/LocalAppModel.h"
#include "core/NoteOrganizing.h"
#include "core/NotesListViewModel.h"
#include "prefs/PreferenceStore.h"
#include "shell/KestilAppDelegate.h"
#include "shell/MainWindow.h"
#include "shell/NoteListItemModel.h"

#include <QAbstractButton>
#include <QCheckBox>
#include <QDir>
#include <QListView>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace kestil::test {

using namespace Qt::StringLiterals;

struct SeedNote {
    QString title;
    QString transcript;
    QStringList tags;
    int hoursAgo = 0;
};

// A switch is clicked on its box: a click right of its text hits nothing.
inline void clickButton(QAbstractButton *button)
{
    const QPoint at =
        qobject_cast<QCheckBox *>(button) ? QPoint(6, button->height() / 2) : button->rect().center();
    QTest::mouseClick(button, Qt::LeftButton, {}, at);
}

template <typename T = QWidget> T *childOf(const QWidget *root, const QString &name)
{
    T *widget = root ? root->findChild<T *>(name) : nullptr;
    EXPECT_NE(widget, nullptr) << name.toStdString();
    return widget;
}

inline void screenshot(QWidget *widget, const QString &name)
{
    QDir().mkpath(QStringLiteral(KESTIL_SCREENSHOT_DIR));
    settle(std::chrono::milliseconds(100));
    widget->grab().save(QStringLiteral(KESTIL_SCREENSHOT_DIR "/") + name + u".png"_s);
}

struct ShellRig {
    QTemporaryDir data;
    QTemporaryDir config;
    RecorderRig recorderRig;
    std::unique_ptr<PreferenceStore> preferences;
    std::unique_ptr<LocalAppModel> app;
    std::unique_ptr<ProcessTapRecorder> recorder;
    std::unique_ptr<KestilAppDelegate> delegate;
    std::unique_ptr<MainWindow> window;
    // Second readers of the store file. They stay open for the rest of the
    // test: a note reads its transcript from its store when first asked.
    std::vector<std::unique_ptr<SharedPersistenceController>> readers;
    int terminations = 0;
    bool exposed = false;

    ShellRig() { recorderRig.useFile(writeTone(config.filePath(u"tone.wav"_s), 3.5)); }

    ~ShellRig()
    {
        // A recording still running is stopped so that no audio thread
        // outlives the test's folders.
        if (recorder && (recorder->recording() || recorder->starting() || recorder->finishing())) {
            const QFuture<QString> stopped = recorder->stop();
            waitFor(stopped, std::chrono::seconds(20));
        }
        window.reset();
        delegate.reset();
        recorder.reset();
    }

    // The library the window opens on; the notes' ids in the order given.
    QList<QUuid> seed(const QList<SeedNote> &notes) const
    {
        SharedPersistenceController store(data.path());
        QList<QUuid> ids;
        for (const SeedNote &s : notes) {
            ids.append(QUuid::createUuid());
            auto note = store.createNote(s.title, s.transcript, ids.last(), u"transcription"_s);
            note->setValue(u"timestamp"_s, QDateTime::currentDateTimeUtc().addSecs(-3600 * s.hoursAgo));
            for (const QString &tag : s.tags)
                note->addTag(tag);
            store.save();
        }
        return ids;
    }

    MainWindow &launch()
    {
        preferences = std::make_unique<PreferenceStore>(config.path());
        LaunchEnvironment environment;
        environment.root = data.path();
        environment.languageModelAvailability = [] { return LanguageModelAvailability::available; };
        app = std::make_unique<LocalAppModel>(environment);
        recorder = std::make_unique<ProcessTapRecorder>(recorderRig.environment());
        delegate = std::make_unique<KestilAppDelegate>(*app, *recorder, *preferences);
        delegate->setTerminate([this] { ++terminations; });
        window = std::make_unique<MainWindow>(*app, *delegate);
        delegate->applicationDidFinishLaunching(window.get());
        window->show();
        exposed = QTest::qWaitForWindowExposed(window.get());
        return *window;
    }

    NotesListViewModel &list() const { return *window->listModel(); }

    NotePtr addNote(const QString &title, const QString &transcript) const
    {
        SharedPersistenceController &store = *app->store();
        const NotePtr note = store.createNote(title, transcript, QUuid::createUuid(), u"transcription"_s);
        app->refreshNotes();
        return note;
    }

    template <typename T = QWidget> T *find(const QString &name) const
    {
        return window->findChild<T *>(name);
    }
    void click(const QString &name) const
    {
        if (auto *button = find<QAbstractButton>(name))
            QTest::mouseClick(button, Qt::LeftButton);
    }
    bool showing(const QString &name) const
    {
        QWidget *widget = find(name);
        return widget && widget->isVisible();
    }

    bool idle() const
    {
        return !recorder->recording() && !recorder->starting() && !recorder->finishing() &&
               !list().operationInProgress();
    }

    QListView *notesList() const { return find<QListView>(u"notesList"_s); }

    QStringList shownTitles() const
    {
        QStringList titles;
        const QAbstractItemModel *model = notesList()->model();
        for (int row = 0; row < model->rowCount(); ++row)
            titles << model->index(row, 0).data(NoteListItemModel::TitleRole).toString();
        return titles;
    }

    void clickRow(int row, Qt::KeyboardModifiers modifiers = {}) const
    {
        QListView *view = notesList();
        QTest::mouseClick(view->viewport(), Qt::LeftButton, modifiers,
                          view->visualRect(view->model()->index(row, 0)).center());
    }

    NotePtr noteTitled(const QString &title) const
    {
        for (const NotePtr &note : app->notes())
            if (note->title() == title)
                return note;
        return nullptr;
    }

    NotePtr storedNote(const QUuid &id)
    {
        readers.push_back(std::make_unique<SharedPersistenceController>(data.path()));
        return readers.back()->noteWithId(id);
    }
};

} // namespace kestil::test
