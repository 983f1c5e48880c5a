#include "core/CoreTestSupport.h"

#include "core/Note.h"
#include "core/TranscriptSearchIndex.h"
#include "library/SearchFold.h"

#include <QRandomGenerator>

using namespace kestil;
using namespace kestil::test;
using namespace Qt::StringLiterals;

namespace {

// Words that fold in every way the comparison knows: full folding (ß, ﬁ),
// look-alike letters (the Kelvin and micro signs), final sigma, composed and
// decomposed accents, the Turkish i's, scripts without case, symbols outside
// the basic plane, and punctuation.
const QStringList &vocabulary()
{
    static const QStringList words =
        u"Straße STRASSE ﬁnal FINAL 200\u212A 5µs ΌΣΟΣ όσος café cafe\u0301 İstanbul ılık Zoë 日本語 "
        "שלום 🚀 O'Brien e-mail AT&T \"quoted\" budget Budget, meeting. ?! — … Q3 the and roadmap "
        "ǅungla x naïve"_s.split(QLatin1Char(' '));
    return words;
}

QString recased(const QString &word, QRandomGenerator &random)
{
    const int how = int(random.bounded(4));
    return how == 0 ? word.toUpper() : how == 1 ? word.toLower() : word;
}

QString generatedTranscript(QRandomGenerator &random, int words)
{
    QStringList parts;
    for (int i = 0; i < words; ++i)
        parts << recased(vocabulary()[int(random.bounded(vocabulary().size()))], random);
    return parts.join(random.bounded(5) == 0 ? u", "_s : u" "_s);
}

// A piece of a text, cut at characters (not halves of surrogate pairs).
QString pieceOf(const QString &text, QRandomGenerator &random, int longest)
{
    const QList<uint> points = text.toUcs4();
    if (points.isEmpty())
        return u"x"_s;
    const int start = int(random.bounded(points.size()));
    const int length = 1 + int(random.bounded(std::min<int>(longest, int(points.size()) - start)));
    return QString::fromUcs4(reinterpret_cast<const char32_t *>(points.constData() + start), length);
}

class TranscriptSearchTest : public ::testing::Test {
protected:
    TempRoot root;
    std::unique_ptr<SharedPersistenceController> store = root.open();

    NotePtr addNote(const QString &transcript)
    {
        return store->createNote(u"n"_s, transcript, QUuid::createUuid(), u"local"_s);
    }

    // Every note whose transcript contains the query by the exact definition,
    // against what the store answers.
    void expectAgreement(const QString &query)
    {
        const QString trimmed = query.trimmed();
        if (trimmed.isEmpty())
            return;
        const auto fast = store->transcriptSearch(trimmed);
        const SearchFold fold;
        int matches = 0;
        for (const NotePtr &note : store->fetchNotes()) {
            const bool exact = fold.contains(note->transcription().value_or(QString()), trimmed);
            matches += exact ? 1 : 0;
            ASSERT_EQ(fast(*note), exact)
                << "query: " << trimmed.toStdString()
                << " transcript: " << note->transcription()->left(200).toStdString();
        }
        ++queries;
        queriesWithMatches += matches > 0 ? 1 : 0;
    }

    int queries = 0;
    int queriesWithMatches = 0;
};

TEST_F(TranscriptSearchTest, IndexAnswersExactlyAsTheDefinitionOnAGeneratedLibrary)
{
    QRandomGenerator random(20240314);
    QList<NotePtr> notes;
    // Short transcripts are indexed as they are saved, long ones later.
    for (int i = 0; i < 90; ++i)
        notes << addNote(generatedTranscript(random, 10 + int(random.bounded(i % 3 == 0 ? 1500 : 300))));
    EXPECT_GT(store->indexTranscripts(0), 0) << "long transcripts wait for the idle indexer";
    while (store->indexTranscripts(1000) > 0) {
    }
    // Some change afterwards: saved (out of the index again), unsaved (in
    // memory only) and deleted.
    for (int i = 0; i < 12; ++i)
        notes[i * 7]->setValue(u"transcription"_s, generatedTranscript(random, 400));
    store->save();
    notes[1]->setValue(u"transcription"_s, u"only in memory: Straße"_s);
    for (int i = 0; i < 4; ++i)
        store->deleteNote(notes[80 + i]);
    notes << addNote(QString()) << addNote(u"   "_s);

    for (const char *query : {"ss",   "SS",        "ﬁ", "fi", "k",       "μ", "Σ", "ς",  ", ",
                              "?!",   "\"",        "I", "i̇",  "e\u0301", "é", "🚀", "日", "only in memory",
                              "zzzz", "café naïve"})
        expectAgreement(QString::fromUtf8(query));
    expectAgreement(QString(10000, QLatin1Char('a')));
    for (int i = 0; i < 250; ++i) {
        const QString source = notes[int(random.bounded(notes.size()))]->transcription().value_or(QString());
        const QString query = pieceOf(source, random, i % 10 == 0 ? 120 : 12);
        expectAgreement(random.bounded(2) ? query.toUpper() : query);
    }
    EXPECT_GT(queriesWithMatches, queries / 2) << "the queries must mostly find something to compare";
}

TEST_F(TranscriptSearchTest, TranscriptsStayInTheStoreUntilRead)
{
    const QString transcript = QString(60000, QLatin1Char('w'));
    const QUuid id = addNote(transcript)->id().value();
    store = root.open();
    const NotePtr note = store->noteWithId(id);
    ASSERT_TRUE(note);
    EXPECT_TRUE(note->isUnread(u"transcription"_s));
    EXPECT_TRUE(note->isUnread(u"transcriptUtterancesJSON"_s));

    // Another field's save leaves the unread transcript as stored.
    note->setValue(u"title"_s, u"Renamed"_s);
    store->save();
    store = root.open();
    const NotePtr again = store->noteWithId(id);
    EXPECT_EQ(again->title(), u"Renamed"_s);
    EXPECT_EQ(again->transcription(), transcript);
    EXPECT_FALSE(again->hasUnsavedValue(u"transcription"_s));

    // A failed save puts back the value that was read, not an empty one.
    again->setValue(u"transcription"_s, u"edited"_s);
    failWrites(*store, u"note"_s, u"UPDATE"_s);
    EXPECT_THROW(store->save(), SystemError);
    store->context().rollback();
    EXPECT_EQ(again->transcription(), transcript);
}

TEST_F(TranscriptSearchTest, AnIndexMadeUnderOtherFoldingRulesStartsAgain)
{
    addNote(u"ılık su"_s);
    EXPECT_EQ(store->indexTranscripts(0), 0) << "a short transcript is indexed as it is saved";
    store.reset();
    const QLocale before;
    QLocale::setDefault(QLocale(QLocale::Turkish, QLocale::Turkey));
    store = root.open();
    EXPECT_EQ(store->store()->transcriptSearch().fold().rule(), SearchFold::Rule::turkic);
    EXPECT_EQ(store->indexTranscripts(0), 1);
    EXPECT_EQ(store->indexTranscripts(1000), 0);
    EXPECT_TRUE(store->transcriptSearch(u"ILIK"_s)(*store->fetchNotes().first()));
    QLocale::setDefault(before);
}

} // namespace
