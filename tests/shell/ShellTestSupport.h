#pragma once

// The window as the program builds it, on a real store in a folder of the
// test's own, with a recorder whose audio and speech the test chooses (a
// real file source and the scripted engine of the recorder tests).

#include "capture/recorder/RecorderTestSupport.h"
#include "core/LocalAppModel.h"
#include "core/NotesListViewModel.h"
#include "prefs/PreferenceStore.h"
#include "shell/KestilAppDelegate.h"
#include "shell/MainWindow.h"

#include <QAbstractButton>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

namespace kestil::test {

struct ShellRig {
    QTemporaryDir data;
    QTemporaryDir config;
    RecorderRig recorderRig;
    std::unique_ptr<PreferenceStore> preferences;
    std::unique_ptr<LocalAppModel> app;
    std::unique_ptr<ProcessTapRecorder> recorder;
    std::unique_ptr<KestilAppDelegate> delegate;
    std::unique_ptr<MainWindow> window;
    int terminations = 0;
    bool exposed = false;

    ShellRig() { recorderRig.useFile(writeTone(config.filePath(QStringLiteral("tone.wav")), 3.5)); }

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

    template <typename T = QWidget> T *find(const QString &name) const
    {
        return window->findChild<T *>(name);
    }

    void click(const QString &name) const
    {
        auto *button = find<QAbstractButton>(name);
        if (button)
            QTest::mouseClick(button, Qt::LeftButton);
    }

    bool idle() const
    {
        return !recorder->recording() && !recorder->starting() && !recorder->finishing() &&
               !list().operationInProgress();
    }
};

} // namespace kestil::test
