// What the Obsidian export writes and where it may read: the Markdown of a
// note, and the guards that keep a note's audio path inside the store.
#include "DocumentsTestSupport.h"

#include "base/Error.h"
#include "documents/ObsidianExport.h"

#include <gtest/gtest.h>

using namespace kestil;
using namespace Qt::StringLiterals;

namespace {

TEST(ObsidianMarkdown, EveryHeadingStandsAndNothingIsTrimmed)
{
    NoteExportContent note;
    note.summary = u" Ship. "_s;
    note.notes = u"bring cake\n"_s;
    EXPECT_EQ(ObsidianExport::markdown(note),
              u"# \n\n Ship. \n\n## Transcript\n\n\n\n## Notes\n\nbring cake\n\n"_s);
}

TEST(ObsidianAudioFolder, OnlyARelativePathInsideTheStoreIsFollowed)
{
    const std::optional<QString> root = u"/data/Kestil/"_s;
    const std::vector<std::pair<const char *, const char *>> rows = {
        {"", "This note has no local audio."},
        {"/etc", "This note has no local audio."},
        {"file:Recordings/A", "This note has no local audio."},
        {"a:b", "This note has no local audio."},
        {"../x", "Audio path is outside the local store."},
        {"Recordings/../../Kestil2/A", "Audio path is outside the local store."},
        {".", "Audio path is outside the local store."},
        {"Recordings/../Recordings/A/", "/data/Kestil/Recordings/A"},
        {"Recordings/A", "/data/Kestil/Recordings/A"}};
    const auto answer = [](const std::optional<QString> &storeRoot, const QString &sourceURL) {
        try {
            return ObsidianExport::noteAudioFolder(storeRoot, sourceURL);
        } catch (const LocalError &error) {
            return error.message();
        }
    };
    for (const auto &[sourceURL, expected] : rows)
        EXPECT_EQ(answer(root, QString::fromUtf8(sourceURL)), QString::fromUtf8(expected)) << sourceURL;
    EXPECT_EQ(answer(std::nullopt, u"Recordings/A"_s), u"Local storage is unavailable."_s);
}

} // namespace
