// The unfinished summaries kept beside the store: one file per note, replaced
// in one step (a QSaveFile), read back with every way a file can be unusable
// told apart.
#include "core/SummaryCheckpointStore.h"
#include "core/CoreTestSupport.h"

using namespace kestil;
using namespace Qt::StringLiterals;
using kestil::test::writeFile;

namespace {

using State = SummaryCheckpointStore::State;

StoredSummaryCheckpoint stored(const QUuid &note, const QString &input, int facts = 1)
{
    LocalSummaryCheckpoint checkpoint(input, LocalSummaryTemplate::meeting);
    checkpoint.sections = QStringList{input.left(input.size() / 2), input.mid(input.size() / 2)};
    for (int i = 0; i < facts; ++i)
        checkpoint.facts.append(u"Fact %1."_s.arg(i));
    return {note, u"model.gguf:1234"_s, checkpoint};
}

} // namespace

TEST(SummaryCheckpointStore, KeepsOneFilePerNoteAndReplacesIt)
{
    QTemporaryDir root;
    const SummaryCheckpointStore store(root.path());
    const QUuid note = QUuid::createUuid();
    EXPECT_EQ(store.read(note).state, State::absent);

    store.save(stored(note, u"First transcript, long enough to cut."_s));
    const StoredSummaryCheckpoint second = stored(note, u"Second transcript “quoted”."_s, 2);
    store.save(second);
    const SummaryCheckpointStore::Read read = store.read(note);
    ASSERT_EQ(read.state, State::readable);
    EXPECT_EQ(read.stored, second);
    const QString name = note.toString(QUuid::WithoutBraces).toUpper() + u".json"_s;
    EXPECT_EQ(QDir(store.directory()).entryList(QDir::Files), QStringList{name});

    // What a write cut off by a crash leaves beside the file goes at the next
    // launch; only the store's own names are notes'.
    writeFile(store.path(note) + u".aB3xYz"_s, "{\"version\":1,\"no");
    writeFile(store.directory() + u"/"_s + name.toLower(), "{}");
    store.removeLeftovers();
    QStringList left = QDir(store.directory()).entryList(QDir::Files | QDir::Hidden);
    left.sort();
    EXPECT_EQ(left, (QStringList{name, name.toLower()}));
    EXPECT_EQ(store.noteIDs(), QList<QUuid>{note});
    EXPECT_EQ(store.read(note).stored, second);

    store.remove(note);
    EXPECT_EQ(store.read(note).state, State::absent);
    store.remove(note); // a missing file is no failure
}

TEST(SummaryCheckpointStore, TellsUnusableFilesApart)
{
    QTemporaryDir root;
    const SummaryCheckpointStore store(root.path());
    const QUuid note = QUuid::createUuid();
    const QByteArray checkpoint = stored(note, u"Text"_s).checkpoint.toJson();
    const auto file = [&](const QByteArray &head, const QUuid &id, const QByteArray &tail) {
        return "{" + head + "\"noteID\":\"" + id.toString(QUuid::WithoutBraces).toUpper().toUtf8() +
               "\",\"model\":\"m\",\"checkpoint\":" + tail;
    };
    const struct {
        const char *what;
        QByteArray bytes;
        State state;
    } cases[] = {
        {"whole", file("\"version\":1,", note, checkpoint + "}"), State::readable},
        {"cut off", file("\"version\":1,", note, "{\"input\":\"Te"), State::unreadable},
        {"not JSON", "\x01\x02garbage", State::unreadable},
        {"empty", "", State::unreadable},
        {"newer", "{\"version\":2,\"somethingNew\":true}", State::newerVersion},
        {"no version", file("", note, checkpoint + "}"), State::unreadable},
        {"another note", file("\"version\":1,", QUuid::createUuid(), checkpoint + "}"), State::unreadable},
        {"checkpoint without facts",
         file("\"version\":1,", note, "{\"input\":\"a\",\"templateKey\":\"b\",\"source\":\"a\",\"pass\":0}}"),
         State::unreadable},
    };
    for (const auto &c : cases) {
        writeFile(store.path(note), c.bytes);
        EXPECT_EQ(store.read(note).state, c.state) << c.what;
    }
}
