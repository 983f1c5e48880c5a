#pragma once

#include "generation/LocalSummaryTemplate.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <optional>

namespace kestil {

// A summary run between two model requests, complete enough to continue it
// without repeating finished work.
struct LocalSummaryCheckpoint {
    QString input;       // the text the run began with
    QString templateKey; // the template's key
    QString source;      // what is being read now: input, then the key points of the pass before
    int pass = 0;        // condensing passes finished
    QStringList facts;   // key points of this pass, one for each finished section
    std::optional<QStringList> sections; // the section list of source, once made
    std::optional<QString> result;       // the finished summary

    LocalSummaryCheckpoint() = default;
    // A fresh run of a text with a template.
    LocalSummaryCheckpoint(const QString &text, LocalSummaryTemplate summaryTemplate);

    // A JSON object with the keys input, templateKey, source, pass, facts and,
    // when present, sections and result.
    QByteArray toJson() const;
    // Nothing when the text is not such an object: the first five keys are
    // required with their types; unknown keys are ignored.
    static std::optional<LocalSummaryCheckpoint> fromJson(const QByteArray &json);

    friend bool operator==(const LocalSummaryCheckpoint &, const LocalSummaryCheckpoint &) = default;
};

} // namespace kestil
