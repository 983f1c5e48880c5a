#pragma once

#include "core/Note.h"

#include <QMainWindow>
#include <QMessageBox>
#include <QPointer>
#include <QTimer>

class QAction;
class QLabel;
class QLineEdit;
class QListView;
class QProgressBar;
class QPushButton;
class QStackedWidget;
class QTabWidget;
class QTextBrowser;

namespace kestil {

class AudioImportController;
class SpeakerController;
class FilterAndSortState;
class FolderSidebar;
class KestilAppDelegate;
class LocalAppModel;
class LocalAskNoteView;
class NoteExportActions;
class NoteFolderChip;
class NoteTitleEdit;
class NoteListItemModel;
class NoteTagsBar;
class NotesListEmptyStates;
class NotesListFilterBar;
class ObsidianExportRunner;
class NotesListViewModel;
class RecordingBar;
class SummaryTab;
class SettingsWindow;
class TranscriptTab;
class WelcomeWindow;

// The main window. With the store open it shows the library: the notes list
// in a sidebar, the selected note with its Summary and Transcript tabs, and a
// recording bar while a recording runs. Otherwise it shows the launch message
// alone, and nothing in it can reach the store.
//
// Every action goes through the window's notes list model; the window only
// draws the model's state and shows its failures as alerts.
class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    MainWindow(LocalAppModel &app, KestilAppDelegate &delegate, QWidget *parent = nullptr);
    ~MainWindow() override;

    // Null without an open store.
    NotesListViewModel *listModel() const { return listModel_; }
    TranscriptTab *transcriptTab() const { return transcriptTab_; }
    SummaryTab *summaryTab() const { return summaryTab_; }
    RecordingBar *recordingBar() const { return recordingBar_; }
    // The alert that shows the last failure, while it is open.
    QMessageBox *alert() const { return alert_; }
    // The Settings window, while it exists.
    SettingsWindow *settingsWindow() const;
    // The welcome flow, while it is open.
    WelcomeWindow *welcomeWindow() const;
    NoteExportActions *exportActions() const { return exportActions_; }
    // The list's search, folder, tags and order, and the widgets over them;
    // null without an open store.
    FilterAndSortState *filterState() const { return filterState_; }
    FolderSidebar *folderSidebar() const { return folderSidebar_; }
    NotesListFilterBar *filterBar() const { return filterBar_; }
    NoteListItemModel *notesModel() const { return notesModel_; }
    NoteFolderChip *folderChip() const { return folderChip_; }
    NoteTagsBar *tagsBar() const { return tagsBar_; }
    ObsidianExportRunner *obsidianExport() const { return obsidianExport_; }
    // "Import Audio File…" and files dropped on the list; null without an open store.
    AudioImportController *audioImport() const { return audioImport_; }
    SpeakerController *speakers() const { return speakers_; }

public slots:
    // Opens the Settings window, or brings it to the front.
    void showSettings();
    // Opens the welcome flow over the window; from Settings, Settings opens
    // again when it ends.
    void showWelcome(bool returnToSettings = false);
    // Opens the Ask AI window of the shown note.
    void showAskAI();
    // Opens the sheet where folders are made, renamed and deleted.
    void showFolderManagement();
    // Asks for a folder of an Obsidian vault and exports the shown note into
    // it, unless a recording is starting, running or finishing.
    void exportSelectedNoteToObsidian();

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    QWidget *buildLibrary();
    QWidget *buildSidebar();
    QWidget *buildFolderSidebar();
    QWidget *buildOrganizeRow();
    void populateFoldersMenu(QMenu *menu);
    // The list's page (rows, an empty library, or why the rows are hidden)
    // and its selection, after the shown rows changed.
    void showListState();
    // The list's selected rows become the model's selection.
    void adoptListSelection();
    // Saves a folder or tag change of the shown note; a failure is shown
    // with what was kept.
    bool saveOrganizing(const QString &failure);
    QWidget *buildDetail();
    QWidget *buildSummaryTab();
    QWidget *buildLaunchMessage();
    void buildMenus();

    NotePtr selectedNote() const;
    void showSelectedNote();
    void showTitle(const QString &title);
    void showWindowTitle();
    void commitTitle();
    void scheduleTranscriptRefresh();
    void refreshTranscript();
    void refreshSummary(const NotePtr &note);
    void refreshRecordingState();
    void refreshJumpButton();
    void updateBanner();
    void showSyncError();
    void selectRow(int row);
    void jumpToRecording();
    void openTranscriptEditor();
    void deleteNote(const NotePtr &note);
    void showRowMenu(const QPoint &position);

    LocalAppModel &app_;
    KestilAppDelegate &delegate_;
    NotesListViewModel *listModel_ = nullptr;
    NoteListItemModel *notesModel_ = nullptr;
    FilterAndSortState *filterState_ = nullptr;
    FolderSidebar *folderSidebar_ = nullptr;
    NotesListFilterBar *filterBar_ = nullptr;
    NotesListEmptyStates *emptyStates_ = nullptr;
    NoteFolderChip *folderChip_ = nullptr;
    NoteTagsBar *tagsBar_ = nullptr;
    QListView *notesList_ = nullptr;
    AudioImportController *audioImport_ = nullptr;
    SpeakerController *speakers_ = nullptr;
    QPushButton *bannerCancel_ = nullptr;
    QPushButton *bannerDismiss_ = nullptr;
    // The note of the recording under way, identified once it stops.
    NotePtr recordedNote_;
    QStackedWidget *sidebarPages_ = nullptr;
    QPushButton *newNoteButton_ = nullptr;
    QStackedWidget *detail_ = nullptr;
    NoteTitleEdit *detailTitle_ = nullptr;
    QLabel *detailDate_ = nullptr;
    QPushButton *recordButton_ = nullptr;
    QPushButton *askButton_ = nullptr;
    NoteExportActions *exportActions_ = nullptr;
    ObsidianExportRunner *obsidianExport_ = nullptr;
    QPointer<LocalAskNoteView> askView_;
    QPushButton *jumpButton_ = nullptr;
    QTabWidget *tabs_ = nullptr;
    SummaryTab *summaryTab_ = nullptr;
    TranscriptTab *transcriptTab_ = nullptr;
    RecordingBar *recordingBar_ = nullptr;
    QLabel *banner_ = nullptr;
    QWidget *bannerRow_ = nullptr;
    QProgressBar *bannerSpinner_ = nullptr;
    QAction *newTranscriptionAction_ = nullptr;
    QAction *pauseAction_ = nullptr;
    QAction *stopAction_ = nullptr;
    QPointer<QMessageBox> alert_;
    QPointer<SettingsWindow> settingsWindow_;
    QPointer<WelcomeWindow> welcomeWindow_;
    QTimer transcriptRefresh_;
    NotePtr shownNote_;
    bool syncingSelection_ = false;
    bool adoptingSelection_ = false;
};

} // namespace kestil
