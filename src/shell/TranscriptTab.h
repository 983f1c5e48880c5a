#pragma once

#include "library/TranscriptFollowState.h"
#include "library/TranscriptTabContent.h"

#include <QTimer>
#include <QWidget>

#include <optional>

class QLabel;
class QProgressBar;
class QPushButton;
class QStackedWidget;
class QTextBrowser;

namespace kestil {

// The transcript tab of a note: timestamped paragraphs, the live tail and
// its dots while recording, the loading and empty states, and an edit
// button. It only draws what it is given; the window recomputes the content
// whenever the recorder or the note changes. Growing text is updated in
// place (only the paragraphs that changed are redrawn), and the view keeps
// the bottom in sight until the user scrolls away.
class TranscriptTab : public QWidget {
    Q_OBJECT
public:
    explicit TranscriptTab(QWidget *parent = nullptr);

    void setContent(const TranscriptTabContent &content);
    const TranscriptTabContent &content() const { return content_; }
    const QList<TranscriptParagraph> &paragraphs() const { return shown_; }
    // The paragraphs as plain text, the label of each above its text.
    QString plainText() const;
    // Another note: start at its beginning, following again.
    void showFromTop();

    const TranscriptFollowState &followState() const { return follow_; }
    // Back to following the live text, at the bottom.
    void resumeFollowing();
    // Identify Speakers: whether it can be asked for now, and its progress
    // while it runs (a fraction from 0 to 1, with a line saying what it does;
    // nothing hides the row).
    void setIdentifySpeakersEnabled(bool enabled, const QString &reason = {});
    void showSpeakerProgress(std::optional<double> fraction, const QString &text = {});

signals:
    void editRequested();
    void identifySpeakersRequested();
    void identifySpeakersCancelled();
    // A click on a speaker's label: the user wants to name that speaker.
    void renameSpeakerRequested(qint64 speaker, const QString &currentName);
    // The user scrolled away from the live bottom, or came back.
    void followingChanged(bool following);

private:
    void render(const QList<TranscriptParagraph> &paragraphs);
    void appendParagraph(const TranscriptParagraph &paragraph, bool first);
    void animateEllipsis();
    bool atBottom() const;
    void scrollToBottom();
    void userScrollEnded();

    QStackedWidget *pages_ = nullptr;
    QTextBrowser *text_ = nullptr;
    QLabel *loadingMessage_ = nullptr;
    QLabel *loadingDetail_ = nullptr;
    QPushButton *edit_ = nullptr;
    QPushButton *identify_ = nullptr;
    QWidget *speakerProgress_ = nullptr;
    QLabel *speakerProgressText_ = nullptr;
    QProgressBar *speakerProgressBar_ = nullptr;
    TranscriptTabContent content_;
    QList<TranscriptParagraph> shown_;
    TranscriptFollowState follow_;
    QTimer ellipsisTimer_;
    int ellipsisStep_ = 0;
    bool programmaticScroll_ = false;
};

} // namespace kestil
