// What the transcript tab costs while a long recording grows: for a live
// transcript of N engine results (about twelve words every four seconds, so
// 1,800 results is two hours), the time to make the paragraphs from the
// recorder's utterances, and the time for the tab to show one more result
// (paragraphs plus the in-place redraw). Each figure is the median of several
// runs; the window redraws at most every 30 ms while snapshots arrive.
//
//   transcript_view_bench [runs]   (default 9)

#include "library/TranscriptParagraphsView.h"
#include "shell/TranscriptTab.h"

#include <QApplication>
#include <QElapsedTimer>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <vector>

using namespace kestil;

namespace {

const char *const words[] = {"we",     "should", "move",    "the",      "launch", "to",   "next",
                             "friday", "after",  "budget",  "review",   "and",    "ask",  "the",
                             "team",   "for",    "numbers", "customer", "said",   "that", "it"};

QList<TranscriptUtterance> liveUtterances(int count)
{
    QList<TranscriptUtterance> list;
    list.reserve(count);
    int w = 0;
    for (int i = 0; i < count; ++i) {
        QStringList text;
        for (int k = 0; k < 12; ++k)
            text << QLatin1String(words[(w++) % int(std::size(words))]);
        TranscriptUtterance u;
        u.id = newTranscriptUtteranceId();
        u.text = text.join(QLatin1Char(' ')) + QLatin1Char('.');
        u.start = 4.0 * i + 0.5;
        u.end = 4.0 * i + 3.8;
        list.append(u);
    }
    return list;
}

double medianMs(int runs, const std::function<void()> &work)
{
    std::vector<double> times;
    for (int r = 0; r < runs; ++r) {
        QElapsedTimer timer;
        timer.start();
        work();
        times.push_back(double(timer.nsecsElapsed()) / 1e6);
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 9;

    std::printf("%8s %16s %18s\n", "results", "paragraphs (ms)", "tab +1 result (ms)");
    for (int count : {100, 450, 900, 1800}) {
        const QList<TranscriptUtterance> all = liveUtterances(count + 1);
        TranscriptParagraphsView view;
        view.isRecordingActive = true;
        view.showEllipsis = true;
        view.utterances = all.mid(0, count);
        const double paragraphs = medianMs(runs, [&] { transcriptParagraphs(view); });

        TranscriptTab tab;
        tab.resize(720, 600);
        tab.show();
        TranscriptTabContent before;
        before.state = TranscriptTabContent::State::paragraphs;
        before.view = view;
        TranscriptTabContent after = before;
        after.view.utterances = all;
        std::vector<double> steps;
        for (int r = 0; r < runs; ++r) {
            tab.setContent(before);
            QCoreApplication::processEvents();
            QElapsedTimer timer;
            timer.start();
            tab.setContent(after);
            QCoreApplication::processEvents();
            steps.push_back(double(timer.nsecsElapsed()) / 1e6);
        }
        std::sort(steps.begin(), steps.end());
        const double grow = steps[steps.size() / 2];
        std::printf("%8d %16.2f %18.2f\n", count, paragraphs, grow);
    }
    return 0;
}
