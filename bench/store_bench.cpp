// Prints how long the notes store takes for the work a user waits on: opening
// a library and listing its notes, saving one edit, applying a summary with
// tags, and deleting a note with audio. Run: build/bench/store_bench [notes]
#include "core/SharedPersistenceController.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <vector>

using namespace kestil;

namespace {

QString sentence(QRandomGenerator &random)
{
    static const QStringList words{
        QStringLiteral("budget"), QStringLiteral("team"),     QStringLiteral("review"),
        QStringLiteral("launch"), QStringLiteral("customer"), QStringLiteral("plan"),
        QStringLiteral("we"),     QStringLiteral("should"),   QStringLiteral("the"),
        QStringLiteral("next"),   QStringLiteral("week"),     QStringLiteral("design"),
        QStringLiteral("agree"),  QStringLiteral("numbers"),  QStringLiteral("quarter"),
        QStringLiteral("and")};
    QStringList s;
    const int n = 6 + int(random.bounded(14));
    for (int i = 0; i < n; ++i)
        s << words[int(random.bounded(words.size()))];
    s[0][0] = s[0][0].toUpper();
    return s.join(QLatin1Char(' ')) + QLatin1Char('.');
}

double medianMs(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const int noteCount = argc > 1 ? std::max(10, atoi(argv[1])) : 1000;
    QTemporaryDir dir;
    QRandomGenerator random(42);
    QElapsedTimer timer;

    QList<QUuid> ids;
    qint64 textBytes = 0;
    {
        SharedPersistenceController controller(dir.path());
        timer.start();
        for (int i = 0; i < noteCount; ++i) {
            QStringList sentences;
            const int count = 20 + int(random.bounded(400)); // a few minutes to an hour of speech
            for (int s = 0; s < count; ++s)
                sentences << sentence(random);
            const QString text = sentences.join(QLatin1Char(' '));
            textBytes += text.toUtf8().size();
            auto note = controller.createNote(QStringLiteral("Meeting %1").arg(i), text, QUuid::createUuid(),
                                              QStringLiteral("transcription"));
            ids << *note->id();
        }
        const double perCreate = double(timer.nsecsElapsed()) / 1e6 / noteCount;
        std::printf("library: %d notes, %.1f MB of transcript text\n", noteCount, double(textBytes) / 1e6);
        std::printf("create note (insert + save):       %8.2f ms each\n", perCreate);
    }

    timer.start();
    SharedPersistenceController controller(dir.path());
    const double openMs = double(timer.nsecsElapsed()) / 1e6;
    timer.start();
    auto notes = controller.fetchNotes();
    const double fetchMs = double(timer.nsecsElapsed()) / 1e6;
    std::printf("open store (cold process):         %8.2f ms\n", openMs);
    std::printf("fetch all notes, newest first:     %8.2f ms\n", fetchMs);
    timer.start();
    notes = controller.fetchNotes();
    std::printf("fetch all notes again (in memory): %8.2f ms\n", double(timer.nsecsElapsed()) / 1e6);

    std::vector<double> edits;
    for (int i = 0; i < 50; ++i) {
        auto note = notes[i % notes.size()];
        note->setValue(QStringLiteral("title"), QStringLiteral("Edited %1").arg(i));
        timer.start();
        controller.save();
        edits.push_back(double(timer.nsecsElapsed()) / 1e6);
    }
    std::printf("save one edited note (median):     %8.2f ms\n", medianMs(edits));

    std::vector<double> summaries;
    for (int i = 0; i < 20; ++i) {
        timer.start();
        controller.applyGeneratedFields(
            notes[i],
            {{QStringLiteral("summary"), QStringLiteral("## Overview\n\n- point")},
             {QStringLiteral("summaryType"), QStringLiteral("general")}},
            QStringList{QStringLiteral("Budget"), QStringLiteral("Team %1").arg(i % 7)});
        summaries.push_back(double(timer.nsecsElapsed()) / 1e6);
    }
    std::printf("apply summary with tags (median):  %8.2f ms\n", medianMs(summaries));

    std::vector<double> deletes;
    for (int i = 0; i < 20; ++i) {
        auto note = notes[notes.size() - 1 - i];
        const QString folder = dir.path() + QStringLiteral("/Recordings/") +
                               note->id()->toString(QUuid::WithoutBraces).toUpper() + QStringLiteral("/S");
        QDir().mkpath(folder);
        QFile audio(folder + QStringLiteral("/audio.float32"));
        audio.open(QIODevice::WriteOnly);
        audio.write(QByteArray(4 * 48000 * 10, '\0'));
        audio.close();
        timer.start();
        controller.deleteNote(note);
        deletes.push_back(double(timer.nsecsElapsed()) / 1e6);
    }
    std::printf("delete note with audio (median):   %8.2f ms\n", medianMs(deletes));
    return 0;
}
