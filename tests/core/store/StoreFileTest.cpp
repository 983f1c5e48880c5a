#include "core/CoreTestSupport.h"

#include "core/LocalAppModel.h"
#include "core/LocalPaths.h"

using namespace kestil;
using namespace kestil::test;
using namespace Qt::StringLiterals;

namespace {

const QString storeFile = u"KestilNotes.sqlite"_s;

NotePtr addNote(SharedPersistenceController &store, const QString &title = QString())
{
    return store.createNote(title, {}, QUuid::createUuid(), u"local"_s);
}

TEST(ContainerIdentifierTest, ValidationAndTheSyncPreference)
{
    using namespace LocalPaths;
    const auto infoWith = [](const QVariant &identifier) {
        return QVariantMap{{u"KestilCloudKitContainerIdentifier"_s, identifier}};
    };
    EXPECT_FALSE(validatedContainerIdentifier({}));
    EXPECT_EQ(validatedContainerIdentifier(infoWith(u"iCloud.a"_s)), u"iCloud.a"_s);
    for (const QVariant &bad : {QVariant(u"iCloud."_s), QVariant(u"iCloud.com.example_notes"_s),
                                QVariant(u"cloud.com.example"_s), QVariant(42)})
        EXPECT_FALSE(validatedContainerIdentifier(infoWith(bad))) << bad.toString().toStdString();
    // Only a boolean false switches sync off; without an identifier it cannot be on.
    const auto info = infoWith(u"iCloud.com.example.notes"_s);
    EXPECT_FALSE(resolveContainerIdentifier(info, QVariant(false)));
    for (const QVariant &on : {QVariant(true), QVariant(), QVariant(u"false"_s), QVariant(0)})
        EXPECT_TRUE(resolveContainerIdentifier(info, on)) << on.toString().toStdString();
    EXPECT_FALSE(resolveContainerIdentifier({}, QVariant(true)));
    // A malformed one opens no store.
    TempRoot root;
    EXPECT_EQ(errorOf([&] { SharedPersistenceController(root.path(), false, u"iCloud.bad_id"_s); }),
              u"The cloud container identifier is invalid. No store was opened."_s);
    EXPECT_FALSE(QFile::exists(root.file(storeFile)));
}

TEST(StoreFileTest, NotesSurviveAReopenWithTheirLinksNewestFirstWithStableIdentities)
{
    TempRoot root;
    const QUuid id = QUuid::createUuid();
    {
        auto controller = root.open();
        ASSERT_TRUE(controller->ready());
        EXPECT_TRUE(controller->syncMode().isLocalOnly());
        auto note = controller->createNote(u"Standup"_s, u"hello there"_s, id, u"local"_s);
        auto later = addNote(*controller, u"Later"_s);
        later->setValue(u"timestamp"_s, note->timestamp()->addSecs(60));
        auto folder = controller->context().insert<Folder>();
        folder->setValue(u"name"_s, u"Work"_s);
        folder->setValue(u"sortOrder"_s, 3);
        note->setFolder(folder);
        note->addTag(u"Planning"_s);
        controller->save();
        EXPECT_FALSE(note->objectId().isTemporary());
    }
    auto controller = root.open();
    const auto notes = controller->fetchNotes();
    ASSERT_EQ(notes.size(), 2);
    EXPECT_EQ(notes.first()->title(), u"Later"_s) << "newest first";
    const auto note = notes.last();
    EXPECT_EQ(note->id(), id);
    EXPECT_EQ(note->title(), u"Standup"_s);
    EXPECT_EQ(note->noteType(), u"local"_s);
    EXPECT_EQ(note->transcription(), u"hello there"_s);
    EXPECT_FALSE(note->summary().has_value());
    ASSERT_TRUE(note->folder());
    EXPECT_EQ(note->folder()->name(), u"Work"_s);
    EXPECT_EQ(note->folder()->sortOrder(), 3);
    EXPECT_EQ(note->folder()->notes().size(), 1);
    EXPECT_EQ(note->sortedTagNames(), QStringList{u"Planning"_s});
    const QString uri = note->objectId().uriString();
    EXPECT_TRUE(uri.startsWith(u"x-kestil://"_s));

    // Deleting the folder leaves the note unfiled; its tags stay in the library.
    controller->context().deleteObject(note->folder());
    controller->save();
    const auto reopened = root.open();
    const auto again = reopened->fetchNotes().last();
    EXPECT_FALSE(again->folder());
    EXPECT_EQ(again->sortedTagNames(), QStringList{u"Planning"_s});
    EXPECT_EQ(again->objectId().uriString(), uri);
}

TEST(StoreFileTest, TwoStoresOnOneFileSeeAndFollowEachOthersSaves)
{
    TempRoot root;
    root.open(); // a library made at an earlier launch
    const auto a = root.open(), b = root.open();
    addNote(*b, u"From b"_s);
    // Written ahead of the file, so that a reader never waits for a writer.
    EXPECT_TRUE(QFile::exists(root.file(storeFile + u"-wal"_s)));
    ASSERT_EQ(a->fetchNotes().size(), 1);
    addNote(*a, u"From a"_s);
    EXPECT_EQ(b->fetchNotes().size(), 2);
}

TEST(StoreFileTest, AStoreThatCannotBeOpenedIsPreservedByteForByte)
{
    // Bytes that are no database, or a folder where the file should be.
    for (const bool folder : {false, true}) {
        SCOPED_TRACE(folder ? "a folder" : "garbage");
        TempRoot root;
        const QString path = root.file(storeFile);
        QByteArray garbage(8192, '\0');
        for (int i = 0; i < garbage.size(); ++i)
            garbage[i] = char((i * 131 + 7) % 251);
        if (folder)
            ASSERT_TRUE(QDir().mkpath(path));
        else
            writeFile(path, garbage);
        const QByteArray before = fileDigest(path);
        const auto app = launchApp(root.path());
        ASSERT_TRUE(app->store());
        SharedPersistenceController &controller = *app->store();
        EXPECT_FALSE(app->storeReady());
        ASSERT_TRUE(controller.errorMessage());
        EXPECT_EQ(app->message(), *controller.errorMessage());
        EXPECT_TRUE(controller.errorMessage()->startsWith(u"Unable to open local notes: "_s));
        EXPECT_TRUE(controller.errorMessage()->endsWith(u". The store was preserved."_s));
        EXPECT_EQ(errorOf([&] { controller.save(); }),
                  u"Local store is unavailable; no changes were saved."_s);
        EXPECT_EQ(errorOf([&] { controller.fetchNotes(); }), *controller.errorMessage());
        EXPECT_THROW(addNote(controller), LocalError);
        EXPECT_EQ(fileDigest(path), before);
        EXPECT_EQ(QFileInfo(path).isDir(), folder);
    }
}

TEST(StoreFileTest, NewerSchemaIsRefusedUntouched)
{
    TempRoot root;
    const QString path = root.file(storeFile);
    {
        auto controller = root.open();
        addNote(*controller);
        const QByteArray sql =
            u"PRAGMA user_version=%1"_s.arg(SqliteStore::latestSchemaVersion() + 1).toUtf8();
        execSql(*controller, sql.constData());
        execSql(*controller, "PRAGMA wal_checkpoint(TRUNCATE)");
    }
    const QByteArray before = fileDigest(path);
    EXPECT_EQ(errorOf([&] { root.open(); }),
              u"The bundled notes model could not be loaded. No data was changed."_s);
    EXPECT_EQ(fileDigest(path), before);
}

TEST(StoreFileTest, OlderSchemaMigratesForwardKeepingNotesAndIndexesTheirTranscripts)
{
    for (int version = 1; version < SqliteStore::latestSchemaVersion(); ++version) {
        SCOPED_TRACE(version);
        TempRoot root;
        {
            auto old = SqliteStore::openAtVersionForTesting(root.file(storeFile), version);
            ASSERT_EQ(old->schemaVersion(), version);
            ASSERT_EQ(sqlite3_exec(old->handle(),
                                   "INSERT INTO kestil_metadata VALUES ('storeId', 'OLD-STORE');"
                                   "INSERT INTO note (pk, id, title, transcription, timestamp) VALUES "
                                   "(1, 'A0B1C2D3-0000-4000-8000-000000000001', 'From before', "
                                   "'Die Straße am Fluss', 1700000000.5)",
                                   nullptr, nullptr, nullptr),
                      SQLITE_OK);
        }
        {
            auto controller = root.open();
            ASSERT_TRUE(controller->ready());
            EXPECT_EQ(controller->store()->schemaVersion(), SqliteStore::latestSchemaVersion());
            const auto notes = controller->fetchNotes();
            ASSERT_EQ(notes.size(), 1);
            const NotePtr note = notes.first();
            EXPECT_EQ(note->title(), u"From before"_s);
            EXPECT_EQ(note->timestamp()->toMSecsSinceEpoch(), 1700000000500);
            EXPECT_EQ(note->objectId().uriString(), u"x-kestil://OLD-STORE/Note/p1"_s);
            EXPECT_FALSE(note->speakerNamesJSON());
            // Old transcripts wait for the index and are found meanwhile, and after.
            EXPECT_EQ(controller->indexTranscripts(0), 1);
            EXPECT_TRUE(controller->transcriptSearch(u"STRASSE"_s)(*note));
            EXPECT_EQ(controller->indexTranscripts(1000), 0);
            for (const char *query : {"STRASSE", "ß", "ss"})
                EXPECT_TRUE(controller->transcriptSearch(QString::fromUtf8(query))(*note)) << query;
            EXPECT_FALSE(controller->transcriptSearch(u"river"_s)(*note));
            // What the newer versions added can be written and read back.
            note->setValue(u"speakerNamesJSON"_s, u"{\"0\":\"Ada\"}"_s);
            controller->save();
        }
        EXPECT_EQ(root.open()->fetchNotes().first()->speakerNamesJSON(), u"{\"0\":\"Ada\"}"_s);
    }
}

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
