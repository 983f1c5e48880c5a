#include "base/Error.h"
#include "capture/ProcessTapRecorder.h"
#include "core/LocalAppModel.h"
#include "core/LocalPaths.h"
#include "generation/LanguageModelPreference.h"
#include "generation/LlamaLanguageModel.h"
#include "generation/LocalSummary.h"
#include "prefs/ApplicationInfo.h"
#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"
#include "shell/ApplicationIdentity.h"
#include "shell/DesktopIntegration.h"
#include "shell/KestilAppDelegate.h"
#include "shell/MainWindow.h"
#include "shell/ModelStatusText.h"
#include "speech/LocalSpeech.h"

#include <QApplication>
#include <QDebug>
#include <QLocale>
#include <QTimer>

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Kestil"));
    QApplication::setApplicationDisplayName(QStringLiteral("Kestil"));
    QApplication::setDesktopFileName(kestil::applicationId());
    // The window's close goes through quitting (a recording is stopped and
    // saved first); the floating indicator must not keep the program alive.
    QApplication::setQuitOnLastWindowClosed(false);

    auto &preferences = kestil::PreferenceStore::standard();
    kestil::LaunchEnvironment environment;
    environment.applicationInfo = kestil::ApplicationInfo::dictionary();
    // Read once, at launch: a change takes effect at the next start.
    environment.syncPreference = preferences.object(QLatin1String(kestil::LocalPaths::syncPreferenceKey));
    // The user's switch for on-device AI, now and whenever Settings changes it.
    kestil::followLanguageModelSwitch(preferences, kestil::LlamaLanguageModel::shared());
    // Only a machine that can never run the on-device model stops the launch;
    // a model not installed yet, or switched off, is the user's to cure.
    environment.languageModelAvailability = [] {
        using State = kestil::LocalSummary::ModelStatus::State;
        switch (kestil::LocalSummary::modelStatus(kestil::LlamaLanguageModel::shared(),
                                                  QLocale(QStringLiteral("en-US")))
                    .state) {
        case State::unavailableForGood:
            return kestil::LanguageModelAvailability::unavailableForGood;
        case State::unavailableButCurable:
            return kestil::LanguageModelAvailability::curable;
        case State::available:
            break;
        }
        return kestil::LanguageModelAvailability::available;
    };
    // Opens the store, loads the notes and repairs interrupted recordings
    // before the first window exists.
    kestil::LocalAppModel app(environment);
    if (app.storeReady() && app.message().isEmpty() && !preferences.loadWarning().isEmpty())
        app.setMessage(preferences.loadWarning());

    // The one recording session of the process: the sound server's default
    // source (the PulseAudio client honours PULSE_SERVER and
    // PULSE_RUNTIME_PATH) and on-device speech.
    // The launch message (a failure to open the store, recovered recordings)
    // also goes to the log: it holds no note text.
    if (!app.message().isEmpty())
        qInfo().noquote() << app.message();

    kestil::ProcessTapRecorder recorder(kestil::ProcessTapRecorder::Environment::system());
    kestil::KestilAppDelegate delegate(app, recorder, preferences);
    kestil::MainWindow window(app, delegate);
    // Appearance, notifications, the sleep inhibitor and the support prompts.
    kestil::DesktopIntegration desktop(delegate, window, kestil::DesktopIntegration::Environment::standard());
    delegate.setDesktopIntegration(&desktop);
    delegate.applicationDidFinishLaunching(&window);
    window.show();
    // A first launch, or a welcome flow left half-way, starts with the
    // welcome over the window.
    if (app.storeReady() && !kestil::settings::welcomeCompleted(preferences))
        QTimer::singleShot(0, &window, [&window] { window.showWelcome(); });

    // The launch status lines, once the window is up.
    if (app.storeReady()) {
        QTimer::singleShot(0, &app, [&app] {
            try {
                // Records why speech cannot run, when it cannot.
                kestil::LocalSpeech::configuration(app.language());
                app.setSpeechStatus(
                    kestil::LocalSpeech::statusLine(kestil::LocalSpeech::readiness(app.language())));
            } catch (const std::exception &e) {
                app.setSpeechStatus(kestil::describe(e));
            }
            const QLocale locale(app.language());
            app.setSummaryStatus(kestil::summaryStatusSentence(kestil::LlamaLanguageModel::shared(), locale));
            qInfo().noquote() << app.speechStatus() << "|"
                              << kestil::summaryStatusDiagnostics(kestil::LlamaLanguageModel::shared(),
                                                                  locale);
        });
    }
    return QApplication::exec();
}
