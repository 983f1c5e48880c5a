#include "core/CoreTestSupport.h"

#include "core/LocalAppModel.h"

using namespace kestil;
using namespace kestil::test;

namespace {

LaunchEnvironment environmentFor(const TempRoot &root, LanguageModelAvailability availability)
{
    LaunchEnvironment env;
    env.root = root.path();
    env.languageModelAvailability = [availability] { return availability; };
    return env;
}

TEST(LaunchTest, AnUnsupportedMachineOpensNothingAndACurableModelStateOpensTheLibrary)
{
    TempRoot root;
    {
        LocalAppModel app(environmentFor(root, LanguageModelAvailability::unavailableForGood));
        EXPECT_EQ(app.message(), LocalAppModel::unsupportedMachineMessage());
        EXPECT_FALSE(app.store());
        EXPECT_FALSE(app.storeReady());
        EXPECT_EQ(app.speechStatus(), QStringLiteral("Checking installed speech models…"));
        EXPECT_FALSE(QFile::exists(root.file(QStringLiteral("KestilNotes.sqlite"))));
    }
    LocalAppModel app(environmentFor(root, LanguageModelAvailability::curable));
    EXPECT_TRUE(app.storeReady());
    EXPECT_TRUE(app.message().isEmpty());
}

TEST(LaunchTest, TheNewestNoteIsSelectedOnlyWhenNothingIsAndAStaleSelectionStays)
{
    TempRoot root;
    bool recovered = false;
    auto env = environmentFor(root, LanguageModelAvailability::available);
    env.recoverInterruptedSessions = [&recovered](LocalAppModel &) { recovered = true; };
    LocalAppModel app(env);
    EXPECT_TRUE(recovered);
    EXPECT_FALSE(app.selected().has_value());
    const auto create = [&] {
        return app.store()->createNote({}, {}, QUuid::createUuid(), QStringLiteral("local"));
    };
    const NotePtr first = create();
    app.refreshNotes();
    EXPECT_EQ(app.selected(), first->id());
    EXPECT_EQ(app.selectedNote(), first);

    const NotePtr second = create();
    second->setValue(QStringLiteral("timestamp"), first->timestamp()->addSecs(1));
    app.store()->save();
    app.refreshNotes();
    EXPECT_EQ(app.selected(), first->id()) << "an existing selection stays";
    EXPECT_EQ(app.notes().first(), second);

    app.store()->deleteNote(first);
    app.refreshNotes();
    EXPECT_EQ(app.selected(), first->id()) << "a stale selection is not cleared";
    EXPECT_EQ(app.selectedNote(), nullptr);
}

TEST(LaunchTest, NoteAudioDirectoryStaysInsideTheRoot)
{
    TempRoot root;
    const auto app = launchApp(root.path());
    const NotePtr note = app->store()->createNote({}, {}, QUuid::createUuid(), QStringLiteral("local"));
    const QString noAudio = QStringLiteral("This note has no local audio.");
    const QString outside = QStringLiteral("Audio path is outside the local store.");
    for (const auto &[source, text] :
         {std::pair{QVariant(), noAudio}, std::pair{QVariant(QString()), noAudio},
          std::pair{QVariant(QStringLiteral("/etc")), noAudio},
          std::pair{QVariant(QStringLiteral("file:Recordings/x")), noAudio},
          std::pair{QVariant(QStringLiteral("Recordings/../../elsewhere")), outside},
          std::pair{QVariant(QStringLiteral(".")), outside}}) {
        note->setValue(QStringLiteral("sourceURL"), source);
        EXPECT_EQ(errorOf([&] { app->noteAudioDirectory(*note); }), text) << source.toString().toStdString();
    }
    const QString folder = QStringLiteral("Recordings/") + idText(*note->id());
    note->setValue(QStringLiteral("sourceURL"), folder);
    EXPECT_EQ(app->noteAudioDirectory(*note), root.file(folder));

    LocalAppModel without(environmentFor(root, LanguageModelAvailability::unavailableForGood));
    EXPECT_EQ(errorOf([&] { without.noteAudioDirectory(*note); }),
              QStringLiteral("Local storage is unavailable."));
}

} // namespace
