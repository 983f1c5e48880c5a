#include "core/CoreTestSupport.h"

#include "core/LocalPaths.h"

using namespace kestil;
using namespace kestil::test;

namespace {

const QString storeFile = QStringLiteral("KestilNotes.sqlite");

NotePtr addNote(SharedPersistenceController &store, const QString &title = QString())
{
    return store.createNote(title, {}, QUuid::createUuid(), QStringLiteral("local"));
}

TEST(ContainerIdentifierTest, ValidationAndTheSyncPreference)
{
    using namespace LocalPaths;
    const auto infoWith = [](const QVariant &identifier) {
        return QVariantMap{{QStringLiteral("KestilCloudKitContainerIdentifier"), identifier}};
    };
    EXPECT_FALSE(validatedContainerIdentifier({}));
    EXPECT_EQ(validatedContainerIdentifier(infoWith(QStringLiteral("iCloud.a"))), QStringLiteral("iCloud.a"));
    for (const QVariant &bad :
         {QVariant(QStringLiteral("iCloud.")), QVariant(QStringLiteral("iCloud.com.example_notes")),
          QVariant(QStringLiteral("cloud.com.example")), QVariant(42)})
        EXPECT_FALSE(validatedContainerIdentifier(infoWith(bad))) << bad.toString().toStdString();

    // Only a boolean false switches sync off; without an identifier it cannot be on.
    const auto info = infoWith(QStringLiteral("iCloud.com.example.notes"));
    EXPECT_FALSE(resolveContainerIdentifier(info, QVariant(false)));
    for (const QVariant &on : {QVariant(true), QVariant(), QVariant(QStringLiteral("false")), QVariant(0)})
        EXPECT_TRUE(resolveContainerIdentifier(info, on)) << on.toString().toStdString();
    EXPECT_FALSE(resolveContainerIdentifier({}, QVariant(true)));

    // In-memory stores ignore the container; a malformed one opens no file.
    SharedPersistenceController a(std::nullopt, true, QStringLiteral("iCloud.com.example"));
    SharedPersistenceController b(std::nullopt, true);
    EXPECT_NE(a.root(), b.root());
    EXPECT_TRUE(a.ready());
    EXPECT_TRUE(a.syncMode().isLocalOnly());
    EXPECT_FALSE(QFile::exists(a.storePath()));
    TempRoot root;
    EXPECT_EQ(
        errorOf([&] { SharedPersistenceController(root.path(), false, QStringLiteral("iCloud.bad_id")); }),
        QStringLiteral("The cloud container identifier is invalid. No store was opened."));
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
        auto note = controller->createNote(QStringLiteral("Standup"), QStringLiteral("hello there"), id,
                                           QStringLiteral("local"));
        auto later = addNote(*controller, QStringLiteral("Later"));
        later->setValue(QStringLiteral("timestamp"), note->timestamp()->addSecs(60));
        auto folder = controller->context().insert<Folder>();
        folder->setValue(QStringLiteral("name"), QStringLiteral("Work"));
        folder->setValue(QStringLiteral("sortOrder"), 3);
        note->setFolder(folder);
        note->addTag(QStringLiteral("Planning"));
        controller->save();
        EXPECT_FALSE(note->objectId().isTemporary());
    }
    auto controller = root.open();
    const auto notes = controller->fetchNotes();
    ASSERT_EQ(notes.size(), 2);
    EXPECT_EQ(notes.first()->title(), QStringLiteral("Later")) << "newest first";
    const auto note = notes.last();
    EXPECT_EQ(note->id(), id);
    EXPECT_EQ(note->title(), QStringLiteral("Standup"));
    EXPECT_EQ(note->noteType(), QStringLiteral("local"));
    EXPECT_EQ(note->transcription(), QStringLiteral("hello there"));
    EXPECT_FALSE(note->summary().has_value());
    ASSERT_TRUE(note->folder());
    EXPECT_EQ(note->folder()->name(), QStringLiteral("Work"));
    EXPECT_EQ(note->folder()->sortOrder(), 3);
    EXPECT_EQ(note->folder()->notes().size(), 1);
    EXPECT_EQ(note->sortedTagNames(), QStringList{QStringLiteral("Planning")});
    const QString uri = note->objectId().uriString();
    EXPECT_TRUE(uri.startsWith(QStringLiteral("x-kestil://")));

    // Deleting the folder leaves the note unfiled; its tags stay in the library.
    controller->context().deleteObject(note->folder());
    controller->save();
    const auto reopened = root.open();
    const auto again = reopened->fetchNotes().last();
    EXPECT_FALSE(again->folder());
    EXPECT_EQ(again->sortedTagNames(), QStringList{QStringLiteral("Planning")});
    EXPECT_EQ(again->objectId().uriString(), uri);
}

TEST(StoreFileTest, TwoStoresOnOneFileSeeAndFollowEachOthersSaves)
{
    TempRoot root;
    root.open(); // a library made at an earlier launch
    const auto a = root.open(), b = root.open();
    addNote(*b, QStringLiteral("From b"));
    // Written ahead of the file, so that a reader never waits for a writer.
    EXPECT_TRUE(QFile::exists(root.file(storeFile + QStringLiteral("-wal"))));
    ASSERT_EQ(a->fetchNotes().size(), 1);
    addNote(*a, QStringLiteral("From a"));
    EXPECT_EQ(b->fetchNotes().size(), 2);
}

TEST(StoreFileTest, AStoreThatCannotBeOpenedIsPreservedByteForByte)
{
    const struct {
        const char *what;
        std::function<void(const TempRoot &, const QString &)> damage;
    } cases[] = {
        {"garbage",
         [](const TempRoot &, const QString &path) {
             QByteArray garbage(8192, '\0');
             for (int i = 0; i < garbage.size(); ++i)
                 garbage[i] = char((i * 131 + 7) % 251);
             writeFile(path, garbage);
         }},
        {"the header kept, the schema page wrecked",
         [](const TempRoot &root, const QString &path) {
             addNote(*root.open());
             QByteArray bytes = readFile(path);
             ASSERT_GT(bytes.size(), 200);
             std::fill(bytes.begin() + 100, bytes.end(), char(0xA5));
             writeFile(path, bytes);
             QFile::remove(path + QStringLiteral("-wal"));
             QFile::remove(path + QStringLiteral("-shm"));
         }},
        {"a folder", [](const TempRoot &, const QString &path) { ASSERT_TRUE(QDir().mkpath(path)); }},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        TempRoot root;
        const QString path = root.file(storeFile);
        c.damage(root, path);
        const QByteArray before = fileDigest(path);
        const auto app = launchApp(root.path());
        ASSERT_TRUE(app->store());
        SharedPersistenceController &controller = *app->store();
        EXPECT_FALSE(app->storeReady());
        ASSERT_TRUE(controller.errorMessage());
        EXPECT_EQ(app->message(), *controller.errorMessage());
        EXPECT_TRUE(controller.errorMessage()->startsWith(QStringLiteral("Unable to open local notes: ")));
        EXPECT_TRUE(controller.errorMessage()->endsWith(QStringLiteral(". The store was preserved.")));
        EXPECT_EQ(errorOf([&] { controller.save(); }),
                  QStringLiteral("Local store is unavailable; no changes were saved."));
        EXPECT_EQ(errorOf([&] { controller.fetchNotes(); }), *controller.errorMessage());
        EXPECT_THROW(addNote(controller), LocalError);
        EXPECT_EQ(fileDigest(path), before);
        EXPECT_EQ(QFileInfo(path).isDir(), c.what == std::string("a folder"));
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
            QStringLiteral("PRAGMA user_version=%1").arg(SqliteStore::latestSchemaVersion() + 1).toUtf8();
        execSql(*controller, sql.constData());
        execSql(*controller, "PRAGMA wal_checkpoint(TRUNCATE)");
    }
    const QByteArray before = fileDigest(path);
    EXPECT_EQ(errorOf([&] { root.open(); }),
              QStringLiteral("The bundled notes model could not be loaded. No data was changed."));
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
            EXPECT_EQ(note->title(), QStringLiteral("From before"));
            EXPECT_EQ(note->timestamp()->toMSecsSinceEpoch(), 1700000000500);
            EXPECT_EQ(note->objectId().uriString(), QStringLiteral("x-kestil://OLD-STORE/Note/p1"));
            EXPECT_FALSE(note->speakerNamesJSON());
            // Old transcripts wait for the index and are found meanwhile, and after.
            EXPECT_EQ(controller->indexTranscripts(0), 1);
            EXPECT_TRUE(controller->transcriptSearch(QStringLiteral("STRASSE"))(*note));
            EXPECT_EQ(controller->indexTranscripts(1000), 0);
            for (const char *query : {"STRASSE", "ß", "ss"})
                EXPECT_TRUE(controller->transcriptSearch(QString::fromUtf8(query))(*note)) << query;
            EXPECT_FALSE(controller->transcriptSearch(QStringLiteral("river"))(*note));
            // What the newer versions added can be written and read back.
            note->setValue(QStringLiteral("speakerNamesJSON"), QStringLiteral("{\"0\":\"Ada\"}"));
            controller->save();
        }
        EXPECT_EQ(root.open()->fetchNotes().first()->speakerNamesJSON(), QStringLiteral("{\"0\":\"Ada\"}"));
    }
}

} // namespace
