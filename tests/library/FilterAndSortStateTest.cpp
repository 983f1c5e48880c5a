#include "library/FilterAndSortState.h"

#include <QHash>
#include <QLocale>

#include "support/QtPrinters.h"

#include <gtest/gtest.h>

using namespace kestil;
using namespace Qt::StringLiterals;

namespace {

const QDateTime now = QDateTime(QDate(2024, 3, 14), QTime(15, 0)).toUTC();

struct Sample {
    QString title;
    std::optional<int> hoursAgo = 0;
    QStringList tags;
    QString transcript;
    std::optional<QUuid> folder;
    bool titleMissing = false;
};

struct Library {
    QList<ListedNote> notes;
    QHash<qsizetype, QString> transcripts;

    explicit Library(const QList<Sample> &samples)
    {
        for (const Sample &s : samples) {
            ListedNote note;
            note.key = notes.size();
            note.title = s.titleMissing ? std::nullopt : std::optional<QString>(s.title);
            note.timestamp =
                s.hoursAgo ? std::optional<QDateTime>(now.addSecs(-3600 * *s.hoursAgo)) : std::nullopt;
            note.hasFolder = s.folder.has_value();
            note.folderID = s.folder && !s.folder->isNull() ? s.folder : std::nullopt;
            note.tagNames = s.tags;
            note.tagNames.sort();
            note.tagCount = int(s.tags.size());
            note.prepare(SearchFold(), QLocale(QLocale::English, QLocale::UnitedStates));
            transcripts.insert(note.key, s.transcript);
            notes.append(note);
        }
    }

    FilterAndSortState::TranscriptMatch exact() const
    {
        return [this](const ListedNote &note, const QString &query) {
            return SearchFold().contains(transcripts.value(note.key), query);
        };
    }

    QStringList titles(const QList<ListedNote> &list) const
    {
        QStringList result;
        for (const ListedNote &n : list)
            result << n.displayTitle;
        return result;
    }
};

class FilterAndSortStateTest : public ::testing::Test {
protected:
    void SetUp() override { QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates)); }
};

Sample titled(const QString &title)
{
    return {title};
}
Sample saying(const QString &transcript)
{
    return {u"x"_s, 0, {}, transcript};
}
Sample tagged(const QStringList &tags)
{
    return {u"x"_s, 0, tags};
}

TEST_F(FilterAndSortStateTest, SearchLooksInTranscriptTitleAndJoinedTagsOnly)
{
    Sample untitled;
    untitled.titleMissing = true;
    const struct {
        const char *name;
        QString search;
        Sample note;
        bool matches;
    } cases[] = {{"blanks match everything", u"  \n "_s, titled(u"x"_s), true},
                 {"title ignores case", u"STANDUP"_s, titled(u"Daily standup"_s), true},
                 {"transcript ignores case", u"budget"_s, saying(u"The BUDGET."_s), true},
                 {"the search is trimmed", u"  budget "_s, saying(u"budget"_s), true},
                 {"full case folding", u"STRASSE"_s, titled(u"Straße"_s), true},
                 {"decomposed finds composed", u"cafe\u0301"_s, titled(u"Café"_s), true},
                 {"accents still count", u"cafe"_s, titled(u"Café"_s), false},
                 {"joined tag names", u"alpha, beta"_s, tagged({"beta", "alpha"}), true},
                 {"a comma finds two tags", u", "_s, tagged({"a", "b"}), true},
                 {"a comma needs two tags", u", "_s, tagged({"a"}), false},
                 {"punctuation only", u"?!"_s, saying(u"Really?! Yes."_s), true},
                 {"an absent title matches nothing", u"untitled"_s, untitled, false},
                 {"nowhere", u"roadmap"_s, {u"Budget"_s, 0, {u"q3"_s}, u"money"_s}, false}};
    for (const auto &c : cases) {
        const Library library({c.note});
        EXPECT_EQ(FilterAndSortState::matchesSearch(library.notes.first(), c.search, library.exact()),
                  c.matches)
            << c.name;
    }
}

TEST_F(FilterAndSortStateTest, FoldersMatchTheirOwnNotesAndTagsMatchAnyOrAllByExactName)
{
    const QUuid work = QUuid::createUuid();
    const struct {
        const char *name;
        FolderSelection selection;
        std::optional<QUuid> folder;
        bool matches;
    } folders[] = {
        {"all, unfiled note", FolderSelection::all(), std::nullopt, true},
        {"all, filed note", FolderSelection::all(), work, true},
        {"unfiled, unfiled note", FolderSelection::unfiled(), std::nullopt, true},
        {"unfiled, filed note", FolderSelection::unfiled(), work, false},
        {"folder, its note", FolderSelection::folder(work), work, true},
        {"folder, another folder's note", FolderSelection::folder(work), QUuid::createUuid(), false},
        {"folder, unfiled note", FolderSelection::folder(work), std::nullopt, false},
        {"folder, a folder without id", FolderSelection::folder(work), QUuid(), false}};
    for (const auto &c : folders) {
        FilterAndSortState state;
        state.setSelectedFolder(c.selection);
        EXPECT_EQ(state.matchesFolder(Library({{u"n"_s, 0, {}, {}, c.folder}}).notes.first()), c.matches)
            << c.name;
    }

    const QString a = u"alpha"_s, b = u"beta"_s;
    const struct {
        const char *name;
        QSet<QString> chosen;
        TagMatchMode mode;
        QStringList tags;
        bool matches;
    } tags[] = {{"nothing chosen", {}, TagMatchMode::all, {}, true},
                {"any, one shared", {a, b}, TagMatchMode::any, {a}, true},
                {"any, none shared", {a}, TagMatchMode::any, {b}, false},
                {"all, every one held", {a, b}, TagMatchMode::all, {a, b, u"c"_s}, true},
                {"all, one missing", {a, b}, TagMatchMode::all, {a}, false},
                {"names compare exactly", {u"Alpha"_s}, TagMatchMode::any, {a}, false}};
    for (const auto &c : tags) {
        FilterAndSortState state;
        state.setSelectedTags(c.chosen);
        state.setTagMatchMode(c.mode);
        EXPECT_EQ(state.matchesTags(Library({{u"n"_s, 0, c.tags}}).notes.first()), c.matches) << c.name;
    }
}

TEST_F(FilterAndSortStateTest, OrdersAreStableOverTheFetchedOrder)
{
    // Fetched newest first; "Same" twice, and two notes with two tags.
    const Library library({{u"no time"_s, std::nullopt},
                           {u"Same"_s, 1, {u"a"_s, u"b"_s}},
                           {u"banana"_s, 2},
                           {u"Same"_s, 3, {u"c"_s, u"d"_s}},
                           {u"apple"_s, 4, {u"e"_s}}});
    const struct {
        NotesSortOption option;
        QStringList order;
    } cases[] = {{NotesSortOption::dateNewest, {"no time", "Same", "banana", "Same", "apple"}},
                 {NotesSortOption::dateOldest, {"apple", "Same", "banana", "Same", "no time"}},
                 {NotesSortOption::titleAZ, {"apple", "banana", "no time", "Same", "Same"}},
                 {NotesSortOption::titleZA, {"Same", "Same", "no time", "banana", "apple"}},
                 {NotesSortOption::mostTags, {"Same", "Same", "apple", "no time", "banana"}}};
    for (const auto &c : cases) {
        FilterAndSortState state;
        state.setSortOption(c.option);
        const QList<ListedNote> sorted = state.filteredNotes(library.notes, QString(), library.exact(), now);
        EXPECT_EQ(library.titles(sorted), c.order) << notesSortOptionRawValue(c.option).toStdString();
        // Equal titles and equal tag counts keep the fetched order: newer first.
        if (c.option == NotesSortOption::titleAZ || c.option == NotesSortOption::mostTags) {
            EXPECT_EQ(sorted[c.option == NotesSortOption::titleAZ ? 3 : 0].key, 1);
        }
        // A changed order counts as a filter, yet hides nothing.
        EXPECT_EQ(state.hasActiveFilters(), c.option != NotesSortOption::dateNewest);
        EXPECT_EQ(sorted.size(), library.notes.size());
    }
}

TEST_F(FilterAndSortStateTest, DayGroupsFollowTheDateOrderAndOtherOrdersHaveOneUntitledGroup)
{
    const QDate today = now.toLocalTime().date();
    const Library library({{u"a"_s, std::nullopt}, {u"b"_s, 1}, {u"c"_s, 24}, {u"d"_s, 24 * 9}});
    FilterAndSortState state;
    auto groups = state.groupedNotes(state.filteredNotes(library.notes, {}, library.exact(), now), now);
    ASSERT_EQ(groups.size(), 3);
    EXPECT_EQ(groups[0].day, today);
    EXPECT_EQ(library.titles(groups[0].notes), (QStringList{"a", "b"})) << "no time counts as today";
    EXPECT_EQ(groups[1].day, now.addDays(-1).toLocalTime().date());
    EXPECT_EQ(groups[2].day, now.addDays(-9).toLocalTime().date());

    state.setSortOption(NotesSortOption::dateOldest);
    groups = state.groupedNotes(state.filteredNotes(library.notes, {}, library.exact(), now), now);
    EXPECT_EQ(groups.first().day, now.addDays(-9).toLocalTime().date());
    EXPECT_EQ(library.titles(groups.last().notes), (QStringList{"b", "a"}));

    state.setSortOption(NotesSortOption::titleAZ);
    groups = state.groupedNotes(state.filteredNotes(library.notes, {}, library.exact(), now), now);
    ASSERT_EQ(groups.size(), 1);
    EXPECT_FALSE(groups.first().day);
    EXPECT_FALSE(FilterAndSortState::dayGroupTitle(groups.first().day, today));
}

TEST_F(FilterAndSortStateTest, DayTitles)
{
    const QDate today(2024, 3, 14);
    EXPECT_EQ(FilterAndSortState::dayGroupTitle(today, today), u"Today"_s);
    EXPECT_EQ(FilterAndSortState::dayGroupTitle(today.addDays(-1), today), u"Yesterday"_s);
    EXPECT_EQ(FilterAndSortState::dayGroupTitle(today.addDays(-2), today), u"Tue, Mar 12"_s);
    EXPECT_EQ(FilterAndSortState::dayGroupTitle(QDate(2019, 12, 25), today), u"Wed, Dec 25"_s)
        << "no year, even for older days";
    EXPECT_EQ(FilterAndSortState::dayGroupTitle(today.addDays(1), today), u"Fri, Mar 15"_s);
}

TEST_F(FilterAndSortStateTest, EmptyStates)
{
    using E = NotesListEmptyState;
    const QUuid work = QUuid::createUuid();
    const FolderSelection all = FolderSelection::all(), unfiled = FolderSelection::unfiled();
    const FolderSelection workFolder = FolderSelection::folder(work);
    const FolderSelection unknown = FolderSelection::folder(QUuid::createUuid());
    const Sample labelled{u"u"_s, 0, {u"x"_s}};
    const Sample filed{u"f"_s, 0, {}, {}, work};
    const QSet<QString> y{u"y"_s};
    const struct {
        const char *name;
        QList<Sample> notes;
        FolderSelection folder;
        QSet<QString> tags;
        QString search;
        E expected;
    } cases[] = {{"no notes", {}, all, {}, {}, E::noNotesYet},
                 {"no notes, with a search", {}, all, {}, u"x"_s, E::noNotesYet},
                 {"a blank search is no search", {filed}, all, {}, u"  "_s, E::none},
                 {"nothing found", {filed}, all, {}, u"zzz"_s, E::noSearchResults},
                 {"a search wins over the folder", {filed}, unfiled, {}, u"f"_s, E::noSearchResults},
                 {"unfiled with none unfiled", {filed}, unfiled, {}, {}, E::noNotesInFolder},
                 {"unfiled notes hidden by tags", {labelled}, unfiled, y, {}, E::filtersHidingNotes},
                 {"an unknown folder", {filed}, unknown, {}, {}, E::noNotesInFolder},
                 {"tags hide every note", {labelled}, all, y, {}, E::filtersHidingNotes},
                 {"something shown", {labelled, filed}, workFolder, {}, {}, E::none}};
    for (const auto &c : cases) {
        FilterAndSortState state;
        state.setSelectedFolder(c.folder);
        state.setSelectedTags(c.tags);
        const Library library(c.notes);
        EXPECT_EQ(state.emptyState(library.notes, c.search, library.exact()), c.expected) << c.name;
    }
}

TEST_F(FilterAndSortStateTest, ClearingKeepsTheFolderAndTogglingFlipsATag)
{
    FilterAndSortState state;
    int changes = 0;
    QObject::connect(&state, &FilterAndSortState::changed, [&] { ++changes; });
    const FolderSelection unfiled = FolderSelection::unfiled();
    state.setSelectedFolder(unfiled);
    EXPECT_FALSE(state.hasActiveFilters()) << "the folder is no filter";
    state.toggleTag(u"a"_s);
    state.toggleTag(u"b"_s);
    state.toggleTag(u"a"_s);
    EXPECT_EQ(state.selectedTags(), QSet<QString>{u"b"_s});
    state.setTagMatchMode(TagMatchMode::all);
    EXPECT_TRUE(state.hasActiveFilters());
    state.clearFilters();
    EXPECT_TRUE(state.selectedTags().isEmpty());
    EXPECT_EQ(state.tagMatchMode(), TagMatchMode::any);
    EXPECT_EQ(state.sortOption(), NotesSortOption::dateNewest);
    EXPECT_EQ(state.selectedFolder(), unfiled);
    EXPECT_FALSE(state.hasActiveFilters());
    EXPECT_EQ(changes, 7);
}

TEST_F(FilterAndSortStateTest, TagCountsFollowTheSearchAlone)
{
    const QUuid work = QUuid::createUuid();
    const Library library({{u"Budget"_s, 0, {u"money"_s, u"q3"_s}, {}, work},
                           {u"Budget again"_s, 1, {u"money"_s}},
                           {u"Design"_s, 2, {u"q3"_s}}});
    FilterAndSortState state;
    state.setSelectedFolder(FolderSelection::unfiled());
    state.setSelectedTags({u"q3"_s});
    const QMap<QString, int> all = state.tagCounts(library.notes, QString(), library.exact());
    EXPECT_EQ(all, (QMap<QString, int>{{u"money"_s, 2}, {u"q3"_s, 2}}));
    const QMap<QString, int> searched = state.tagCounts(library.notes, u"budget"_s, library.exact());
    EXPECT_EQ(searched, (QMap<QString, int>{{u"money"_s, 2}, {u"q3"_s, 1}}));
}

} // namespace
