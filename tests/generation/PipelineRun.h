#pragma once

#include "generation/LocalSummary.h"

#include <QList>
#include <QStringList>

// Everything a summary run hands out, recorded.
struct PipelineRun {
    QList<kestil::LocalSummaryProgress> progress;
    QStringList snapshots;
    QList<kestil::LocalSummaryCheckpoint> checkpoints;

    QString generate(kestil::LanguageModel &model, const QString &text,
                     kestil::LocalSummaryTemplate summaryTemplate = kestil::LocalSummaryTemplate::meeting,
                     const std::optional<kestil::LocalSummaryCheckpoint> &resuming = std::nullopt,
                     const kestil::CancellationToken &cancel = {},
                     std::chrono::milliseconds requestLimit = kestil::LocalSummary::requestTimeLimit)
    {
        return kestil::LocalSummary::generate(
            model, text, summaryTemplate, QLocale(QStringLiteral("en_US")), resuming,
            [this](const kestil::LocalSummaryCheckpoint &checkpoint) { checkpoints.append(checkpoint); },
            [this](const kestil::LocalSummaryProgress &value) { progress.append(value); },
            [this](const QString &snapshot) { snapshots.append(snapshot); }, cancel, requestLimit);
    }
};
