#include "core/CoreTestSupport.h"

#include "core/LocalPaths.h"

using namespace kestil;
using namespace kestil::test;

namespace {

QVariantMap infoWith(const QVariant &identifier)
{
    return {{QStringLiteral("KestilCloudKitContainerIdentifier"), identifier}};
}

TEST(ContainerIdentifierTest, ValidationAndTheSyncPreference)
{
    using namespace LocalPaths;
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
}

TEST(StoreFileTest, NotesSurviveAReopenWithTheirLinks)
{
    TempRoot root;
    const QUuid id = QUuid::createUuid();
    {
        auto controller = root.open();
        ASSERT_TRUE(controller->ready());
        EXPECT_TRUE(controller->syncMode().isLocalOnly());
        auto note = controller->createNote(QStringLiteral("Standup"), QStringLiteral("hello there"), id,
                                           QStringLiteral("local"));
        auto folder = controller->context().insert<Folder>();
        folder->setValue(QStringLiteral("name"), QStringLiteral("Work"));
        folder->setValue(QStringLiteral("sortOrder"), 3);
        note->setFolder(folder);
        note->addTag(QStringLiteral("Planning"));
        controller->save();
        EXPECT_FALSE(note->objectId().isTemporary());
    }
    auto controller = root.open();
    auto notes = controller->fetchNotes();
    ASSERT_EQ(notes.size(), 1);
    const auto note = notes.first();
    EXPECT_EQ(note->id(), id);
    EXPECT_EQ(note->title(), QStringLiteral("Standup"));
    EXPECT_EQ(note->noteType(), QStringLiteral("local"));
    EXPECT_FALSE(note->summary().has_value());
    ASSERT_TRUE(note->folder());
    EXPECT_EQ(note->folder()->name(), QStringLiteral("Work"));
    EXPECT_EQ(note->folder()->sortOrder(), 3);
    EXPECT_EQ(note->folder()->notes().size(), 1);
    EXPECT_EQ(note->sortedTagNames(), QStringList{QStringLiteral("Planning")});
    EXPECT_TRUE(note->objectId().uriString().startsWith(QStringLiteral("x-kestil://")));

    // Deleting the folder leaves the note unfiled; its tags stay in the library.
    controller->context().deleteObject(note->folder());
    controller->save();
    auto reopened = root.open();
    const auto again = reopened->fetchNotes().first();
    EXPECT_FALSE(again->folder());
    EXPECT_EQ(again->sortedTagNames(), QStringList{QStringLiteral("Planning")});
}

TEST(StoreFileTest, NotesAreNewestFirstAndIdentitiesStable)
{
    TempRoot root;
    auto controller = root.open();
    auto a = controller->createNote(QStringLiteral("A"), {}, QUuid::createUuid(), QStringLiteral("local"));
    auto b = controller->createNote(QStringLiteral("B"), {}, QUuid::createUuid(), QStringLiteral("local"));
    a->setValue(QStringLiteral("timestamp"), QDateTime::currentDateTimeUtc().addSecs(60));
    controller->save();
    const auto notes = controller->fetchNotes();
    ASSERT_EQ(notes.size(), 2);
    EXPECT_EQ(notes[0], a);
    EXPECT_EQ(notes[1], b);
    const QString uri = a->objectId().uriString();
    a->setValue(QStringLiteral("title"), QStringLiteral("A2"));
    controller->save();
    EXPECT_EQ(a->objectId().uriString(), uri);
}

TEST(StoreFileTest, CorruptFileIsPreservedByteForByte)
{
    TempRoot root;
    const QString path = root.file(QStringLiteral("KestilNotes.sqlite"));
    QByteArray garbage(8192, '\0');
    for (int i = 0; i < garbage.size(); ++i)
        garbage[i] = char((i * 131 + 7) % 251);
    writeFile(path, garbage);
    const QByteArray before = fileDigest(path);

    SharedPersistenceController controller(root.path());
    EXPECT_FALSE(controller.ready());
    ASSERT_TRUE(controller.errorMessage());
    EXPECT_TRUE(controller.errorMessage()->startsWith(QStringLiteral("Unable to open local notes: ")));
    EXPECT_TRUE(controller.errorMessage()->endsWith(QStringLiteral(". The store was preserved.")));
    EXPECT_EQ(errorOf([&] { controller.save(); }),
              QStringLiteral("Local store is unavailable; no changes were saved."));
    EXPECT_EQ(errorOf([&] { controller.fetchNotes(); }), *controller.errorMessage());
    EXPECT_THROW(controller.createNote({}, {}, QUuid::createUuid(), QStringLiteral("local")), LocalError);
    EXPECT_EQ(fileDigest(path), before);
    EXPECT_FALSE(QFile::exists(path + QStringLiteral("-wal")));
}

TEST(StoreFileTest, DamagedOrUnreadableStoreIsPreserved)
{
    TempRoot root;
    const QString path = root.file(QStringLiteral("KestilNotes.sqlite"));
    root.open()->createNote(QStringLiteral("A"), {}, QUuid::createUuid(), QStringLiteral("local"));
    // Keep the header, wreck the schema page.
    QByteArray bytes = readFile(path);
    ASSERT_GT(bytes.size(), 200);
    std::fill(bytes.begin() + 100, bytes.end(), char(0xA5));
    writeFile(path, bytes);
    QFile::remove(path + QStringLiteral("-wal"));
    QFile::remove(path + QStringLiteral("-shm"));
    const QByteArray before = fileDigest(path);
    EXPECT_FALSE(root.open()->ready());
    EXPECT_EQ(fileDigest(path), before);

    // A folder where the file should be cannot be read as a store.
    TempRoot other;
    ASSERT_TRUE(QDir().mkpath(other.file(QStringLiteral("KestilNotes.sqlite"))));
    EXPECT_FALSE(other.open()->ready());
    EXPECT_TRUE(QFileInfo(other.file(QStringLiteral("KestilNotes.sqlite"))).isDir());
}

TEST(StoreFileTest, NewerSchemaIsRefusedUntouched)
{
    TempRoot root;
    const QString path = root.file(QStringLiteral("KestilNotes.sqlite"));
    {
        auto controller = root.open();
        controller->createNote(QStringLiteral("A"), {}, QUuid::createUuid(), QStringLiteral("local"));
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

TEST(StoreFileTest, OlderSchemaMigratesForwardKeepingNotes)
{
    for (int version = 1; version < SqliteStore::latestSchemaVersion(); ++version) {
        SCOPED_TRACE(version);
        TempRoot root;
        const QString path = root.file(QStringLiteral("KestilNotes.sqlite"));
        {
            auto old = SqliteStore::openAtVersionForTesting(path, version);
            ASSERT_EQ(old->schemaVersion(), version);
            ASSERT_EQ(sqlite3_exec(old->handle(),
                                   "INSERT INTO kestil_metadata VALUES ('storeId', 'OLD-STORE');"
                                   "INSERT INTO note (pk, id, title, timestamp) VALUES "
                                   "(1, 'A0B1C2D3-0000-4000-8000-000000000001', 'From before', 1700000000.5)",
                                   nullptr, nullptr, nullptr),
                      SQLITE_OK);
        }
        {
            auto controller = root.open();
            ASSERT_TRUE(controller->ready());
            EXPECT_EQ(controller->store()->schemaVersion(), SqliteStore::latestSchemaVersion());
            const auto notes = controller->fetchNotes();
            ASSERT_EQ(notes.size(), 1);
            EXPECT_EQ(notes.first()->title(), QStringLiteral("From before"));
            EXPECT_EQ(notes.first()->timestamp()->toMSecsSinceEpoch(), 1700000000500);
            EXPECT_EQ(notes.first()->objectId().uriString(), QStringLiteral("x-kestil://OLD-STORE/Note/p1"));
            EXPECT_FALSE(notes.first()->speakerNamesJSON());
            // What the newer versions added can be written and read back.
            notes.first()->setValue(QStringLiteral("speakerNamesJSON"), QStringLiteral("{\"0\":\"Ada\"}"));
            controller->save();
        }
        auto reopened = root.open();
        EXPECT_EQ(reopened->fetchNotes().first()->speakerNamesJSON(), QStringLiteral("{\"0\":\"Ada\"}"));
    }
}

TEST(StoreFileTest, InMemoryStoresIgnoreTheContainerAndAMalformedOneOpensNoFile)
{
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
    EXPECT_FALSE(QFile::exists(root.file(QStringLiteral("KestilNotes.sqlite"))));
}

} // namespace
