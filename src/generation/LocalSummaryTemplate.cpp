#include "generation/LocalSummaryTemplate.h"

namespace kestil {

namespace LocalSummaryTemplates {

namespace {

struct Row {
    const char *key;
    const char *title;
    const char *instructions;
};

// In the order of LocalSummaryTemplate.
const Row rows[] = {
    {"default-summary", "Auto",
     "Write a Markdown summary. Choose headings that fit this content, such as Key Points, Decisions, Action "
     "Items, Risks and Open Questions."},
    {"personal-note", "Personal Note",
     "Write Markdown notes from a voice note someone spoke for themselves. Write plainly, as their own "
     "notes; never "
     "say \"the user\" or \"the speaker\". Headings to choose from: Key Points, Ideas, To-Dos. Put every "
     "task or "
     "reminder only under To-Dos, as a plain item without a bold label."},
    {"brain-dump", "Brain Dump",
     "Write Markdown notes that organize one person's free-form thinking out loud. Write plainly, as their "
     "own "
     "notes; never say \"the user\" or \"the speaker\". Group related thoughts and keep unfinished ideas. "
     "Headings "
     "to choose from: Main Themes, Ideas, Questions, Next Steps."},
    {"lecture", "Lecture",
     "Write Markdown lecture notes. Headings to choose from: Key Concepts, Definitions, Examples, Formulas "
     "(only "
     "when the lecturer gives one), Review Questions. Preserve concrete facts and the lecturer's reasoning."},
    {"meetings/general", "Meeting",
     "Write Markdown meeting notes. Headings to choose from: Key Points, Decisions, Action Items, Open "
     "Questions."},
    {"meetings/1-1", "1:1 Meeting",
     "Write Markdown 1:1 meeting notes. Headings to choose from: Goals, Feedback, Growth, Decisions, Action "
     "Items."},
    {"meetings/all-hands", "All-Hands Meeting",
     "Write Markdown all-hands notes. Headings to choose from: Announcements, Metrics, Decisions, Team "
     "Questions, "
     "Action Items."},
    {"meetings/brainstorming", "Brainstorming Session",
     "Write Markdown brainstorming notes. Headings to choose from: Ideas, Evaluation, Selected Ideas, Action "
     "Items."},
    {"meetings/networking", "Networking Event",
     "Write Markdown networking notes. Headings to choose from: People, Shared Interests, Offers, "
     "Follow-ups."},
    {"meetings/project-kickoff", "Project Kickoff",
     "Write Markdown project kickoff notes. Headings to choose from: Objectives, Scope, Roles, Milestones, "
     "Risks, "
     "Action Items."},
    {"meetings/sprint-planning", "Sprint Planning",
     "Write Markdown sprint planning notes. Headings to choose from: Sprint Goal, Committed Work (with any "
     "stated "
     "estimates), Capacity, Risks, Action Items."},
    {"meetings/stand-up", "Stand-up Meeting",
     "Write Markdown stand-up notes. Headings to choose from: Yesterday, Today, Blockers. Begin each item "
     "with the "
     "speaker's name in bold, then what they did, plan or are blocked on. List every blocker under "
     "Blockers."},
    {"meetings/weekly-project-status", "Weekly Project Status",
     "Write Markdown weekly status notes. Headings to choose from: Progress, Blockers, Metrics, Decisions, "
     "Action "
     "Items."},
    {"Concise", "Concise",
     "Write a short Markdown summary: the overview, then a single Key Points section of at most six items."},
    {"Study", "Study",
     "Write Markdown study notes. Headings to choose from: Key Concepts, Definitions, Review Questions."},
};

static_assert(std::size(rows) == allCases.size());

const Row &row(LocalSummaryTemplate value)
{
    return rows[static_cast<size_t>(value)];
}

} // namespace

QString id(LocalSummaryTemplate value)
{
    return QString::fromUtf8(row(value).key);
}

QString rawValue(LocalSummaryTemplate value)
{
    return QString::fromUtf8(row(value).title);
}

QString displayTitle(LocalSummaryTemplate value)
{
    if (value == LocalSummaryTemplate::meeting)
        return QStringLiteral("General Meeting");
    return rawValue(value);
}

std::optional<QString> category(LocalSummaryTemplate value)
{
    if (id(value).startsWith(QStringLiteral("meetings/")))
        return QStringLiteral("Meetings");
    return std::nullopt;
}

QString instructionText(LocalSummaryTemplate value)
{
    return QString::fromUtf8(row(value).instructions);
}

LocalSummaryTemplate fromStored(const std::optional<QString> &stored)
{
    if (!stored)
        return LocalSummaryTemplate::autoSummary;
    for (LocalSummaryTemplate value : allCases) {
        if (id(value) == *stored)
            return value;
    }
    for (LocalSummaryTemplate value : allCases) {
        if (rawValue(value) == *stored)
            return value;
    }
    return LocalSummaryTemplate::autoSummary;
}

QString formatParagraph()
{
    return QStringLiteral(
        "Format: start with \"## Summary\" and a two or three sentence overview. Then use \"## \" headings "
        "with "
        "\"- \" list items, and give each heading its own section. Start an item with a short bold label and "
        "a colon "
        "when it helps scanning. In Action Items, the bold label is the name of the person the source says "
        "is "
        "responsible, followed by the task; leave the label out when nobody is named. Use only headings the "
        "source "
        "supports and skip the rest. Never write an empty section or item, a placeholder such as none or not "
        "discussed, or an estimate, owner, date or number the source does not state. State each fact once; "
        "do not "
        "repeat it under another heading.");
}

QString closingSentence()
{
    return QStringLiteral(
        "\nCreate one summary. Combine overlapping facts; do not repeat sections. End after the "
        "summary.");
}

QString finalPromptHead(LocalSummaryTemplate value)
{
    return instructionText(value) + QLatin1Char('\n') + formatParagraph() + closingSentence();
}

} // namespace LocalSummaryTemplates

QJsonObject Template::toJson() const
{
    QJsonObject object{{QStringLiteral("key"), key},
                       {QStringLiteral("title"), title},
                       {QStringLiteral("description"), description}};
    if (category)
        object.insert(QStringLiteral("category"), *category);
    return object;
}

std::optional<Template> Template::fromJson(const QJsonObject &object)
{
    const QJsonValue key = object.value(QStringLiteral("key"));
    const QJsonValue title = object.value(QStringLiteral("title"));
    const QJsonValue description = object.value(QStringLiteral("description"));
    const QJsonValue category = object.value(QStringLiteral("category"));
    if (!key.isString() || !title.isString() || !description.isString())
        return std::nullopt;
    if (!category.isUndefined() && !category.isNull() && !category.isString())
        return std::nullopt;
    Template result{key.toString(), title.toString(), description.toString(), std::nullopt};
    if (category.isString())
        result.category = category.toString();
    return result;
}

QString Template::currentTitle(const std::optional<QString> &summaryType,
                               const QList<Template> &availableTemplates)
{
    const QString noteKey = LocalSummaryTemplates::id(LocalSummaryTemplates::fromStored(summaryType));
    if (noteKey == QStringLiteral("default-summary"))
        return QStringLiteral("Auto");
    for (const Template &row : availableTemplates) {
        if (LocalSummaryTemplates::id(LocalSummaryTemplates::fromStored(row.key)) == noteKey)
            return row.title;
    }
    return QStringLiteral("Auto");
}

} // namespace kestil
