#pragma once

// The application as the list-model and chat tests drive it: the real store
// in a temporary data root, real preferences, the recorder on the recording
// tests' rig (a sound file for input, a speech engine that hears one word per
// second of audio) and notes lists over them, made once the test has set the
// rig up as it wants.

#include "capture/recorder/RecorderTestSupport.h"
#include "core/CoreTestSupport.h"

#include "core/NotesListRoles.h"
#include "core/NotesListViewModel.h"
#include "prefs/PreferenceStore.h"

namespace kestil::test {

class CoreRig {
public:
    explicit CoreRig(double toneSeconds = 2.5)
    {
        application();
        tone = writeTone(config.filePath(QStringLiteral("tone.wav")), toneSeconds);
        rig.useFile(tone);
        preferences = std::make_unique<PreferenceStore>(config.filePath(QStringLiteral("prefs")));
        app = launchApp(root.path());
    }

    // The lists go first: each stops its job and waits for its worker.
    ~CoreRig()
    {
        models.clear();
        recorder.reset();
    }

    // A list like every other window's, on the rig's language model.
    std::unique_ptr<NotesListViewModel> makeList()
    {
        if (!recorder)
            recorder = std::make_unique<ProcessTapRecorder>(rig.environment());
        auto made = std::make_unique<NotesListViewModel>(*app, *recorder, roles, *preferences);
        if (languageModel)
            made->setLanguageModel(languageModel);
        return made;
    }

    NotesListViewModel &list()
    {
        if (models.empty())
            models.push_back(makeList());
        return *models.front();
    }

    NotesListViewModel &anotherList()
    {
        list();
        return *models.emplace_back(makeList());
    }

    SharedPersistenceController &store() { return *app->store(); }

    NotePtr makeNote(const QString &title, const QString &text = QString(),
                     const QString &type = QStringLiteral("local"))
    {
        return store().createNote(title, text, QUuid::createUuid(), type);
    }

    // What another process would read from the file.
    NotePtr storedNote(const QUuid &id)
    {
        reopened = std::make_unique<SharedPersistenceController>(root.path());
        return reopened->noteWithId(id);
    }

    TempRoot root;
    QTemporaryDir config;
    QString tone;
    RecorderRig rig;
    std::unique_ptr<PreferenceStore> preferences;
    std::unique_ptr<LocalAppModel> app;
    NotesListRoles roles;
    LanguageModel *languageModel = nullptr;
    std::unique_ptr<ProcessTapRecorder> recorder;
    std::vector<std::unique_ptr<NotesListViewModel>> models;
    std::unique_ptr<SharedPersistenceController> reopened;
};

// A test fixture on the rig; a store that did not open fails every test.
class CoreRigTest : public ::testing::Test, protected CoreRig {
protected:
    void SetUp() override { ASSERT_TRUE(app->storeReady()); }
};

} // namespace kestil::test
