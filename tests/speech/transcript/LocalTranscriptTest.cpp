#include "TranscriptTestSupport.h"

#include "speech/TranscriptUtterance.h"

#include <QRegularExpression>
#include <QSet>

#include <gtest/gtest.h>

using namespace kestil;

TEST(TranscriptUtterance, NewIdsAreUniqueUpperCaseUuidsAndEqualRecordsHashAlike)
{
    const QRegularExpression uuid("^[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}$");
    const QString id = newTranscriptUtteranceId();
    EXPECT_TRUE(uuid.match(id).hasMatch()) << id.toStdString();
    EXPECT_NE(newTranscriptUtteranceId(), id);

    // An empty optional hashes apart from a present zero.
    const TranscriptUtterance a = with(utterance("A", "Hi.", 1.0, 2.0), 1, 0.5);
    const TranscriptUtterance zero = utterance("A", "x", 0.0);
    const TranscriptUtterance none = utterance("A", "x");
    EXPECT_EQ(qHash(a), qHash(TranscriptUtterance(a)));
    EXPECT_NE(qHash(zero), qHash(none));
    EXPECT_EQ(QSet<TranscriptUtterance>({a, TranscriptUtterance(a), zero, none}).size(), 3);
}

TEST(TranscriptUtterance, LiveResultsAreAppendedWithFreshIdsTrimmedTextAndShiftedTimes)
{
    const QList<TranscriptUtterance> base = {utterance("OLD", "Before.", 0.0, 3.0)};
    const QList<LocalUtterance> live = {{"  First words.\n", 0.5, 1.5}, {"Second.", 2.0, 2.75}};
    const QList<TranscriptUtterance> combined = combinedTranscriptUtterances(base, live, 10.0);
    ASSERT_EQ(combined.size(), 3);
    EXPECT_EQ(combined[0], base[0]);
    EXPECT_EQ(combined[1], utterance(combined[1].id, "First words.", 10.5, 11.5));
    EXPECT_EQ(combined[2], utterance(combined[2].id, "Second.", 12.0, 12.75));
    EXPECT_EQ(combined[1].id.size(), 36);
    EXPECT_NE(combined[1].id, combined[2].id);
    // Each report mints new ids: identity is stable across reads, not live saves.
    EXPECT_NE(combinedTranscriptUtterances(base, live, 10.0)[1].id, combined[1].id);
}
