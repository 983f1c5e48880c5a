// Prints how a large library feels in the real window: launch to the notes
// list shown, a keystroke in the search field to the list redrawn (median and
// 95th percentile), a change of sort or of the chosen tags, and resident
// memory with the list shown. Beside each figure, the same for a naive
// in-memory scan: every transcript held in memory from launch and every search
// a scan of all of them.
//
// Run: build/bench/library_bench [--notes N] [--chars C] [--cache DIR]
// Defaults: 10000 notes of 50000 characters (an hour of speech each), in
// DIR = the temporary folder. The generated store is kept there under a name
// of N and C and reused; generating the full size takes a few minutes.
#include "capture/ProcessTapRecorder.h"
#include "core/LocalAppModel.h"
#include "core/NoteOrganizing.h"
#include "core/SharedPersistenceController.h"
#include "library/FilterAndSortState.h"
#include "library/SearchFold.h"
#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"
#include "shell/KestilAppDelegate.h"
#include "shell/MainWindow.h"
#include "shell/NoteListItemModel.h"
#include "shell/NotesListFilterBar.h"
#include "shell/TagFilterPopover.h"

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QKeyEvent>
#include <QLineEdit>
#include <QListView>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTreeWidget>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <vector>

using namespace kestil;

namespace {

qint64 monotonicNs()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return qint64(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

double residentMegabytes()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').first().toDouble() / 1024.0;
    }
    return 0;
}

// ---- the generated library ------------------------------------------------

// Words of meetings with a Zipf-like spread, a few names in other scripts,
// and punctuation, so that searches meet what real transcripts hold.
const QStringList &words()
{
    static const QStringList list =
        QStringLiteral(
            "the and to of a I we that you it is in so for this yeah on be have what do with just like "
            "think not they can but about if our go all know okay right there was are at get one going "
            "need um uh would people here from when more some time now then really also make how see "
            "because want thing week next team customer budget roadmap launch review quarter plan design "
            "data number meeting product feature sales pricing hiring churn retention revenue deadline "
            "release question issue follow update agreed decision priority metrics onboarding support "
            "contract partner marketing engineering research interview feedback sprint backlog estimate "
            "risk timeline goal dashboard report analysis migration security compliance invoice renewal "
            "escalation incident postmortem architecture prototype experiment survey cohort funnel page "
            "email call slide deck demo user account signup trial discount enterprise segment region")
            .split(QLatin1Char(' '));
    return list;
}

const QStringList &names()
{
    static const QStringList list{
        QStringLiteral("Sørensen"), QStringLiteral("Zoë"),    QStringLiteral("Müller"),
        QStringLiteral("O'Brien"),  QStringLiteral("Łukasz"), QStringLiteral("Ana"),
        QStringLiteral("Priya"),    QStringLiteral("José"),   QStringLiteral("İlker")};
    return list;
}

QString word(QRandomGenerator &random)
{
    // Zipf: word k with weight 1/k, drawn through its inverse.
    const double u = random.generateDouble();
    const int n = int(words().size());
    const int k = std::min(n - 1, int(std::floor(std::exp(u * std::log(double(n) + 1.0)))) - 1);
    return words()[std::max(0, k)];
}

QString transcript(QRandomGenerator &random, int characters)
{
    QString text;
    text.reserve(characters + 200);
    while (text.size() < characters) {
        const int length = 6 + int(random.bounded(16));
        for (int i = 0; i < length; ++i) {
            QString w =
                random.bounded(400) == 0 ? names()[int(random.bounded(names().size()))] : word(random);
            if (i == 0)
                w[0] = w[0].toUpper();
            text += w;
            text += i + 1 == length ? (random.bounded(6) == 0 ? QStringLiteral("? ") : QStringLiteral(". "))
                                    : (random.bounded(12) == 0 ? QStringLiteral(", ") : QStringLiteral(" "));
        }
    }
    text.truncate(characters);
    return text;
}

QString generatedRoot(const QString &cache, int notes, int characters)
{
    return QDir(cache).filePath(QStringLiteral("kestil-library-bench-%1-%2-v1").arg(notes).arg(characters));
}

void generate(const QString &root, int notes, int characters)
{
    QDir(root).removeRecursively();
    QDir().mkpath(root);
    QElapsedTimer timer;
    timer.start();
    SharedPersistenceController store(root);
    QRandomGenerator random(7);
    QList<FolderPtr> folders;
    for (const QString &name : {QStringLiteral("Customers"), QStringLiteral("Product"),
                                QStringLiteral("Hiring"), QStringLiteral("Finance"), QStringLiteral("1:1s"),
                                QStringLiteral("Board"), QStringLiteral("Research"), QStringLiteral("Ops")})
        folders << createFolder(name, store.context());
    QStringList tags;
    for (int i = 0; i < 40; ++i)
        tags << word(random) + QString::number(i % 7);
    const QDateTime newest = QDateTime::currentDateTimeUtc();
    for (int i = 0; i < notes; ++i) {
        auto note = store.context().insert<Note>();
        note->setValue(QStringLiteral("id"), QUuid::createUuid());
        note->setValue(QStringLiteral("noteType"), QStringLiteral("transcription"));
        note->setValue(QStringLiteral("title"),
                       QStringLiteral("%1 %2 %3").arg(word(random), word(random), word(random)));
        note->setValue(QStringLiteral("timestamp"),
                       newest.addSecs(-qint64(i) * 3 * 3600 - random.bounded(3000)));
        note->setValue(QStringLiteral("transcription"), transcript(random, characters));
        note->setValue(QStringLiteral("summary"), QStringLiteral("## Overview\n") + transcript(random, 600));
        if (random.bounded(10) < 6)
            note->setFolder(folders[int(random.bounded(folders.size()))]);
        const int tagCount = int(random.bounded(5));
        for (int t = 0; t < tagCount; ++t)
            note->addTag(tags[int(random.bounded(tags.size()))]);
        if (i % 100 == 99 || i + 1 == notes) {
            store.save();
            std::printf("\rgenerating: %d of %d notes", i + 1, notes);
            std::fflush(stdout);
        }
    }
    std::printf("\nindexing the transcripts...\n");
    while (store.indexTranscripts(2000) > 0) {
    }
    std::printf("generated in %.0f s\n", timer.elapsed() / 1000.0);
    QFile marker(QDir(root).filePath(QStringLiteral(".complete")));
    marker.open(QIODevice::WriteOnly);
}

// ---- one run in a process of its own -------------------------------------

struct Figures {
    std::vector<double> keystrokes, sorts, tags;
};

double percentile(std::vector<double> v, double p)
{
    if (v.empty())
        return 0;
    std::sort(v.begin(), v.end());
    const double rank = std::ceil(p * double(v.size())) - 1;
    return v[std::min(v.size() - 1, size_t(std::max(0.0, rank)))];
}

// Waits until the view has painted after the last change.
class PaintWatch : public QObject {
public:
    bool painted = false;
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::Paint)
            painted = true;
        return false;
    }
};

// The change's events run, then the list paints: the time from the change's
// start until the list shows its result.
double redraw(QListView *list, qint64 started)
{
    QCoreApplication::processEvents();
    list->viewport()->repaint();
    return double(monotonicNs() - started) / 1e6;
}

int runChild(const QString &mode, const QString &root, qint64 parentStart)
{
    QTemporaryDir config;
    PreferenceStore preferences(config.path());
    settings::setWelcomeCompleted(preferences, true);
    LaunchEnvironment environment;
    environment.root = root;
    environment.languageModelAvailability = [] { return LanguageModelAvailability::available; };
    LocalAppModel app(environment);
    const bool naive = mode == QLatin1String("naive");

    // The naive list holds every transcript from launch and scans them all.
    QHash<const Note *, QString> held;
    if (naive) {
        for (const NotePtr &note : app.notes())
            held.insert(note.get(), note->transcription().value_or(QString()));
    }
    ProcessTapRecorder recorder;
    KestilAppDelegate delegate(app, recorder, preferences);
    MainWindow window(app, delegate);
    NoteListItemModel *model = window.notesModel();
    if (naive) {
        model->setTranscriptSearch([&held](const QString &query) {
            const SearchFold fold;
            QSet<const Note *> found;
            for (auto it = held.cbegin(); it != held.cend(); ++it) {
                if (fold.contains(it.value(), query))
                    found.insert(it.key());
            }
            return [found](const Note &note) { return found.contains(&note); };
        });
    }
    auto *list = window.findChild<QListView *>(QStringLiteral("notesList"));
    PaintWatch watch;
    list->viewport()->installEventFilter(&watch);
    window.resize(1280, 800);
    window.show();
    while (!watch.painted)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    const double launch = double(monotonicNs() - parentStart) / 1e6;
    const double listedMemory = residentMegabytes();

    Figures figures;
    QLineEdit *field = window.filterBar()->searchField();
    const QStringList queries{QStringLiteral("budget"),    QStringLiteral("roadmap review"),
                              QStringLiteral("Sørensen"),  QStringLiteral("customer churn"),
                              QStringLiteral("q3"),        QStringLiteral("pricing page"),
                              QStringLiteral("we agreed"), QStringLiteral("and the"),
                              QStringLiteral("xylophone"), QStringLiteral("launch date?")};
    qsizetype lastShown = 0;
    for (const QString &query : queries) {
        for (const QChar c : query) {
            const qint64 started = monotonicNs();
            QKeyEvent press(QEvent::KeyPress, 0, Qt::NoModifier, QString(c));
            QCoreApplication::sendEvent(field, &press);
            figures.keystrokes.push_back(redraw(list, started));
        }
        lastShown = model->shownNotes().size();
        std::fprintf(stderr, "  %-16s %6lld notes shown\n", qPrintable(query),
                     static_cast<long long>(lastShown));
        const qint64 started = monotonicNs();
        QKeyEvent escape(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier);
        QCoreApplication::sendEvent(field, &escape);
        figures.keystrokes.push_back(redraw(list, started));
    }

    window.filterBar()->showPopover();
    TagFilterPopover *popover = window.filterBar()->popover();
    QComboBox *sort = popover->sortPicker();
    for (int round = 0; round < 2; ++round) {
        for (int option = 1; option <= sort->count(); ++option) {
            const qint64 started = monotonicNs();
            sort->setCurrentIndex(option % sort->count());
            figures.sorts.push_back(redraw(list, started));
        }
    }
    QTreeWidget *tags = popover->tagList();
    for (int i = 0; i < 10 && tags->topLevelItemCount() > 0; ++i) {
        QTreeWidgetItem *item = tags->topLevelItem((i * 7) % tags->topLevelItemCount());
        const qint64 started = monotonicNs();
        item->setCheckState(0, item->checkState(0) == Qt::Checked ? Qt::Unchecked : Qt::Checked);
        figures.tags.push_back(redraw(list, started));
    }
    popover->close();

    std::printf("launch %.1f\n", launch);
    std::printf("keystrokeMedian %.2f\nkeystrokeP95 %.2f\nkeystrokeWorst %.2f\n",
                percentile(figures.keystrokes, 0.5), percentile(figures.keystrokes, 0.95),
                percentile(figures.keystrokes, 1.0));
    std::printf("sortMedian %.2f\nsortP95 %.2f\n", percentile(figures.sorts, 0.5),
                percentile(figures.sorts, 0.95));
    std::printf("tagMedian %.2f\ntagP95 %.2f\n", percentile(figures.tags, 0.5),
                percentile(figures.tags, 0.95));
    std::printf("memoryListed %.0f\nmemoryAfter %.0f\n", listedMemory, residentMegabytes());
    return 0;
}

QHash<QString, double> runInChild(const QString &program, const QString &mode, const QString &root)
{
    QProcess child;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    child.setProcessEnvironment(environment);
    child.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    const qint64 started = monotonicNs();
    child.start(program, {QStringLiteral("--child"), mode, root, QString::number(started)});
    child.waitForFinished(-1);
    QHash<QString, double> figures;
    for (const QByteArray &line : child.readAllStandardOutput().split('\n')) {
        const QList<QByteArray> parts = line.split(' ');
        if (parts.size() == 2)
            figures.insert(QString::fromUtf8(parts[0]), parts[1].toDouble());
    }
    return figures;
}

} // namespace

int main(int argc, char *argv[])
{
    if (argc == 5 && QByteArray(argv[1]) == "--child") {
        QApplication application(argc, argv);
        return runChild(QString::fromUtf8(argv[2]), QString::fromUtf8(argv[3]),
                        QByteArray(argv[4]).toLongLong());
    }
    QCoreApplication application(argc, argv);
    int notes = 10000;
    int characters = 50000;
    QString cache = QDir::tempPath();
    const QStringList args = application.arguments();
    for (qsizetype i = 1; i + 1 < args.size(); i += 2) {
        if (args[i] == QLatin1String("--notes"))
            notes = std::max(1, args[i + 1].toInt());
        else if (args[i] == QLatin1String("--chars"))
            characters = std::max(100, args[i + 1].toInt());
        else if (args[i] == QLatin1String("--cache"))
            cache = args[i + 1];
    }
    const QString root = generatedRoot(cache, notes, characters);
    if (!QFileInfo::exists(QDir(root).filePath(QStringLiteral(".complete"))))
        generate(root, notes, characters);
    const double storeMegabytes =
        QFileInfo(QDir(root).filePath(QStringLiteral("KestilNotes.sqlite"))).size() / 1e6;

    std::printf("Library: %d notes of %d characters (%.0f MB of transcripts), store file %.0f MB\n", notes,
                characters, double(notes) * characters / 1e6, storeMegabytes);
    std::printf("indexed search:\n");
    std::fflush(stdout);
    const auto ours = runInChild(application.applicationFilePath(), QStringLiteral("ours"), root);
    std::printf("naive in-memory scan:\n");
    std::fflush(stdout);
    const auto naive = runInChild(application.applicationFilePath(), QStringLiteral("naive"), root);

    const auto row = [&](const char *label, const char *key, const char *unit) {
        std::printf("%-44s %10.1f %10.1f  %s\n", label, ours.value(QString::fromLatin1(key)),
                    naive.value(QString::fromLatin1(key)), unit);
    };
    std::printf("\n%-44s %10s %10s\n", "", "indexed", "naive");
    row("launch to list shown", "launch", "ms");
    row("keystroke to list redrawn, median", "keystrokeMedian", "ms");
    row("keystroke to list redrawn, 95th percentile", "keystrokeP95", "ms");
    row("keystroke to list redrawn, worst", "keystrokeWorst", "ms");
    row("sort change to list redrawn, median", "sortMedian", "ms");
    row("sort change to list redrawn, 95th percentile", "sortP95", "ms");
    row("tag change to list redrawn, median", "tagMedian", "ms");
    row("tag change to list redrawn, 95th percentile", "tagP95", "ms");
    row("resident memory with the list shown", "memoryListed", "MB");
    row("resident memory after the run", "memoryAfter", "MB");
    return 0;
}
