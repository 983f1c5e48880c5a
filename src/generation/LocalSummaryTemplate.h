#pragma once

#include <QJsonObject>
#include <QList>
#include <QString>

#include <array>
#include <optional>

namespace kestil {

// The fixed list of summary templates, in the order of every list and menu.
enum class LocalSummaryTemplate {
    autoSummary,
    personalNote,
    brainDump,
    lecture,
    meeting,
    oneToOne,
    allHands,
    brainstorming,
    networking,
    projectKickoff,
    sprintPlanning,
    standUp,
    weeklyStatus,
    concise,
    study,
};

namespace LocalSummaryTemplates {

inline constexpr std::array<LocalSummaryTemplate, 15> allCases{
    LocalSummaryTemplate::autoSummary,    LocalSummaryTemplate::personalNote,
    LocalSummaryTemplate::brainDump,      LocalSummaryTemplate::lecture,
    LocalSummaryTemplate::meeting,        LocalSummaryTemplate::oneToOne,
    LocalSummaryTemplate::allHands,       LocalSummaryTemplate::brainstorming,
    LocalSummaryTemplate::networking,     LocalSummaryTemplate::projectKickoff,
    LocalSummaryTemplate::sprintPlanning, LocalSummaryTemplate::standUp,
    LocalSummaryTemplate::weeklyStatus,   LocalSummaryTemplate::concise,
    LocalSummaryTemplate::study,
};

// The key stored on a note ("default-summary", "meetings/general", "Concise", ...).
QString id(LocalSummaryTemplate value);
// The stored title ("Auto", "Meeting", ...).
QString rawValue(LocalSummaryTemplate value);
// The title in menus: the raw value, except "General Meeting" for meeting.
QString displayTitle(LocalSummaryTemplate value);
// "Meetings" for keys under "meetings/", otherwise none.
std::optional<QString> category(LocalSummaryTemplate value);
// What the model is asked to write, word for word.
QString instructionText(LocalSummaryTemplate value);

// A stored string to a template: a key first, then a title, else auto. Exact
// and case-sensitive; never fails.
LocalSummaryTemplate fromStored(const std::optional<QString> &stored);

// The paragraph on format that follows every instruction text in a final prompt.
QString formatParagraph();
// The sentence that closes every final prompt; it begins with a line feed.
QString closingSentence();
// Instruction text, a line feed, the format paragraph, the closing sentence.
QString finalPromptHead(LocalSummaryTemplate value);

} // namespace LocalSummaryTemplates

// A row of the template submenu.
struct Template {
    QString key;
    QString title;
    QString description;
    std::optional<QString> category;

    QJsonObject toJson() const;
    // Fails (returns nothing) when a field is missing or of the wrong type.
    static std::optional<Template> fromJson(const QJsonObject &object);
    // The title the submenu shows for a note's stored template.
    static QString currentTitle(const std::optional<QString> &summaryType,
                                const QList<Template> &availableTemplates);

    friend bool operator==(const Template &, const Template &) = default;
};

} // namespace kestil
