#include "core/CoreTestSupport.h"

#include "core/LocalAppModel.h"

using namespace kestil;
using namespace kestil::test;
using namespace Qt::StringLiterals;

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
        EXPECT_EQ(app.speechStatus(), u"Checking installed speech models…"_s);
        EXPECT_FALSE(QFile::exists(root.file(u"KestilNotes.sqlite"_s)));
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
    const auto create = [&] { return app.store()->createNote({}, {}, QUuid::createUuid(), u"local"_s); };
    const NotePtr first = create();
    app.refreshNotes();
    EXPECT_EQ(app.selected(), first->id());
    EXPECT_EQ(app.selectedNote(), first);

    const NotePtr second = create();
    second->setValue(u"timestamp"_s, first->timestamp()->addSecs(1));
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
    const NotePtr note = app->store()->createNote({}, {}, QUuid::createUuid(), u"local"_s);
    const QString noAudio = u"This note has no local audio."_s;
    const QString outside = u"Audio path is outside the local store."_s;
    for (const auto &[source, text] :
         {std::pair{QVariant(), noAudio}, std::pair{QVariant(QString()), noAudio},
          std::pair{QVariant(u"/etc"_s), noAudio}, std::pair{QVariant(u"file:Recordings/x"_s), noAudio},
          std::pair{QVariant(u"Recordings/../../elsewhere"_s), outside},
          std::pair{QVariant(u"."_s), outside}}) {
        note->setValue(u"sourceURL"_s, source);
        EXPECT_EQ(errorOf([&] { app->noteAudioDirectory(*note); }), text) << source.toString().toStdString();
    }
    const QString folder = u"Recordings/"_s + idText(*note->id());
    note->setValue(u"sourceURL"_s, folder);
    EXPECT_EQ(app->noteAudioDirectory(*note), root.file(folder));

    LocalAppModel without(environmentFor(root, LanguageModelAvailability::unavailableForGood));
    EXPECT_EQ(errorOf([&] { without.noteAudioDirectory(*note); }), u"Local storage is unavailable."_s);
}

} // namespace
