#include "shell/MainWindow.h"
#include "shell/WidgetNames.h"

#include "capture/ProcessTapRecorder.h"
#include "core/AskNoteConversation.h"
#include "core/LocalAppModel.h"
#include "core/NoteOrganizing.h"
#include "core/NoteTranscript.h"
#include "core/NotesListViewModel.h"
#include "library/FilterAndSortState.h"
#include "library/TranscriptTabContent.h"
#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"
#include "shell/AudioImportController.h"
#include "shell/DesktopIntegration.h"
#include "shell/FolderManagementSheet.h"
#include "shell/FolderSidebar.h"
#include "shell/Icons.h"
#include "shell/KestilAppDelegate.h"
#include "shell/LocalAskNoteView.h"
#include "shell/NoteExportActions.h"
#include "shell/NoteFolderChip.h"
#include "shell/NoteListItemModel.h"
#include "shell/NoteRowDelegate.h"
#include "shell/NoteTagsBar.h"
#include "shell/NoteTitleEdit.h"
#include "shell/NotesListEmptyStates.h"
#include "shell/NotesListFilterBar.h"
#include "shell/ObsidianExportRunner.h"
#include "shell/RecordingBar.h"
#include "shell/SettingsWindow.h"
#include "shell/SpeakerController.h"
#include "shell/SummaryTab.h"
#include "shell/TranscriptEditor.h"
#include "shell/TranscriptTab.h"
#include "shell/WelcomeWindow.h"

#include <QAction>
#include <QClipboard>
#include <QCloseEvent>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QShortcut>
#include <QSplitter>
#include <QStackedWidget>
#include <QTabWidget>
#include <QTextBrowser>
#include <QToolButton>
#include <QVBoxLayout>

namespace kestil {

namespace {

enum TabIndex { summaryIndex = 0, transcriptIndex = 1 };
enum SidebarPage { listPage = 0, noNotesPage = 1, hiddenNotesPage = 2 };
enum DetailPage { noSelectionPage = 0, notePage = 1 };

QPalette mutedPalette(const QWidget *widget, double alpha)
{
    QPalette palette = widget->palette();
    QColor text = palette.color(QPalette::WindowText);
    text.setAlphaF(float(alpha));
    palette.setColor(QPalette::WindowText, text);
    return palette;
}

QWidget *emptyState(const QString &identifier, const QString &title, const QString &message)
{
    auto *page = new QWidget;
    named(page, identifier);
    auto *layout = new QVBoxLayout(page);
    layout->addStretch(1);
    auto *heading = new QLabel(title);
    heading->setObjectName(identifier + QStringLiteral("Title"));
    heading->setAlignment(Qt::AlignCenter);
    QFont font = heading->font();
    font.setWeight(QFont::DemiBold);
    font.setPointSizeF(font.pointSizeF() * 1.15);
    heading->setFont(font);
    layout->addWidget(heading);
    auto *text = new QLabel(message);
    text->setObjectName(identifier + QStringLiteral("Message"));
    text->setAlignment(Qt::AlignCenter);
    text->setWordWrap(true);
    text->setPalette(mutedPalette(text, 0.6));
    layout->addWidget(text);
    layout->addStretch(2);
    return page;
}

} // namespace

MainWindow::MainWindow(LocalAppModel &app, KestilAppDelegate &delegate, QWidget *parent)
    : QMainWindow(parent), app_(app), delegate_(delegate)
{
    setObjectName(QStringLiteral("mainWindow"));
    setWindowTitle(QStringLiteral("Kestil"));
    resize(1120, 720);
    transcriptRefresh_.setSingleShot(true);
    transcriptRefresh_.setInterval(30);
    connect(&transcriptRefresh_, &QTimer::timeout, this, &MainWindow::refreshTranscript);
    buildMenus();
    setCentralWidget(app_.storeReady() ? buildLibrary() : buildLaunchMessage());
    if (listModel_)
        listModel_->listAppeared(app_.notes(), folderSidebar_->selection());
}

MainWindow::~MainWindow() = default;

QWidget *MainWindow::buildLaunchMessage()
{
    auto *label = new QLabel(app_.message());
    label->setObjectName(QStringLiteral("launchMessage"));
    label->setAccessibleName(QStringLiteral("launchMessage"));
    label->setAlignment(Qt::AlignCenter);
    label->setWordWrap(true);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    label->setContentsMargins(32, 32, 32, 32);
    connect(&app_, &LocalAppModel::messageChanged, label, [this, label] { label->setText(app_.message()); });
    return label;
}

void MainWindow::buildMenus()
{
    QMenu *file = menuBar()->addMenu(QStringLiteral("&File"));
    newTranscriptionAction_ = file->addAction(QStringLiteral("New Transcription"));
    newTranscriptionAction_->setObjectName(QStringLiteral("newTranscriptionAction"));
    newTranscriptionAction_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_N));
    newTranscriptionAction_->setShortcutContext(Qt::ApplicationShortcut);
    newTranscriptionAction_->setEnabled(app_.storeReady());
    connect(newTranscriptionAction_, &QAction::triggered, &delegate_, &KestilAppDelegate::newTranscription);
    QAction *importAudio = file->addAction(QStringLiteral("Import Audio File…"));
    importAudio->setObjectName(QStringLiteral("importAudioFileAction"));
    importAudio->setEnabled(app_.storeReady());
    connect(importAudio, &QAction::triggered, this, [this] {
        if (audioImport_)
            audioImport_->chooseFiles();
    });
    QAction *settingsAction = file->addAction(QStringLiteral("Settings…"));
    settingsAction->setObjectName(QStringLiteral("settingsAction"));
    settingsAction->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Comma));
    settingsAction->setShortcutContext(Qt::ApplicationShortcut);
    connect(settingsAction, &QAction::triggered, this, &MainWindow::showSettings);
    file->addSeparator();
    QAction *quit = file->addAction(QStringLiteral("Quit Kestil"));
    quit->setObjectName(QStringLiteral("quitAction"));
    quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    quit->setShortcutContext(Qt::ApplicationShortcut);
    connect(quit, &QAction::triggered, &delegate_, &KestilAppDelegate::requestQuit);

    if (!app_.storeReady())
        return;
    exportActions_ = new NoteExportActions([this] { return shownNote_; }, this);
    obsidianExport_ = new ObsidianExportRunner(app_, this);
    QMenu *noteMenu = menuBar()->addMenu(QStringLiteral("N&ote"));
    noteMenu->setObjectName(QStringLiteral("noteMenu"));
    connect(noteMenu, &QMenu::aboutToShow, this, [this, noteMenu] { exportActions_->populate(noteMenu); });
    // A menu that has never been filled still opens with its entries.
    exportActions_->populate(noteMenu);
    QMenu *folders = menuBar()->addMenu(QStringLiteral("Fol&ders"));
    folders->setObjectName(QStringLiteral("foldersMenu"));
    connect(folders, &QMenu::aboutToShow, this, [this, folders] { populateFoldersMenu(folders); });
    populateFoldersMenu(folders);
    QMenu *recording = menuBar()->addMenu(QStringLiteral("&Recording"));
    pauseAction_ = recording->addAction(QStringLiteral("Pause"));
    pauseAction_->setObjectName(QStringLiteral("pauseRecordingAction"));
    pauseAction_->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_P));
    stopAction_ = recording->addAction(QStringLiteral("Stop Transcription"));
    stopAction_->setObjectName(QStringLiteral("stopRecordingAction"));
    stopAction_->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_S));
    connect(pauseAction_, &QAction::triggered, this, [this] {
        if (listModel_)
            listModel_->togglePause();
    });
    connect(stopAction_, &QAction::triggered, this, [this] {
        if (listModel_)
            listModel_->stopTranscription();
    });
}

SettingsWindow *MainWindow::settingsWindow() const
{
    return settingsWindow_;
}

WelcomeWindow *MainWindow::welcomeWindow() const
{
    return welcomeWindow_;
}

void MainWindow::showWelcome(bool returnToSettings)
{
    if (!app_.storeReady())
        return;
    if (!welcomeWindow_) {
        if (settingsWindow_)
            settingsWindow_->close();
        welcomeWindow_ = new WelcomeWindow(delegate_.preferences(), WelcomeEnvironment::standard(), this);
        welcomeWindow_->setAttribute(Qt::WA_DeleteOnClose);
        connect(welcomeWindow_, &WelcomeWindow::firstRecordingRequested, &delegate_,
                &KestilAppDelegate::newTranscription);
        connect(welcomeWindow_, &QDialog::finished, this, [this, returnToSettings] {
            updateBanner();
            if (returnToSettings)
                showSettings();
        });
    }
    welcomeWindow_->open();
    welcomeWindow_->raise();
}

void MainWindow::showSettings()
{
    if (!settingsWindow_) {
        SettingsWindow::Environment environment = SettingsWindow::Environment::standard();
        if (const DesktopIntegration *desktop = delegate_.desktopIntegration()) {
            environment.summaryNotifications = &desktop->notifications();
            environment.themes = &desktop->themes();
            environment.engagement = &desktop->engagement();
            environment.support = desktop->supportTargets();
        }
        settingsWindow_ = new SettingsWindow(app_, delegate_.preferences(), std::move(environment), this);
        settingsWindow_->setWindowFlag(Qt::Window);
        connect(settingsWindow_, &SettingsWindow::exportSelectedNoteRequested, this,
                &MainWindow::exportSelectedNoteToObsidian);
        connect(settingsWindow_, &SettingsWindow::welcomeRequested, this, [this] { showWelcome(true); });
    }
    settingsWindow_->refresh();
    settingsWindow_->show();
    settingsWindow_->raise();
    settingsWindow_->activateWindow();
}

QWidget *MainWindow::buildLibrary()
{
    listModel_ =
        new NotesListViewModel(app_, delegate_.recorder(), delegate_.roles(), delegate_.preferences(), this);

    auto *root = new QWidget;
    auto *rootLayout = new QVBoxLayout(root);
    rootLayout->setContentsMargins(0, 0, 0, 0);
    rootLayout->setSpacing(0);

    auto *splitter = new QSplitter(Qt::Horizontal);
    splitter->setObjectName(QStringLiteral("librarySplitter"));
    splitter->setChildrenCollapsible(false);
    splitter->addWidget(buildFolderSidebar());
    splitter->addWidget(buildSidebar());
    splitter->addWidget(buildDetail());
    splitter->setStretchFactor(2, 1);
    splitter->setSizes({190, 320, 800});
    rootLayout->addWidget(splitter, 1);

    recordingBar_ = new RecordingBar(delegate_.recorder());
    rootLayout->addWidget(recordingBar_);
    connect(recordingBar_, &RecordingBar::pauseClicked, listModel_, &NotesListViewModel::togglePause);
    connect(recordingBar_, &RecordingBar::stopClicked, this, [this] { listModel_->stopTranscription(); });
    connect(recordingBar_, &RecordingBar::titleClicked, this, &MainWindow::jumpToRecording);

    // The launch banner: the application model's message in caption size,
    // a spinner while the model is busy, and Cancel for its operation.
    bannerRow_ = new QWidget;
    bannerRow_->setObjectName(QStringLiteral("messageBannerRow"));
    auto *bannerLayout = new QHBoxLayout(bannerRow_);
    bannerLayout->setContentsMargins(14, 4, 10, 4);
    banner_ = new QLabel;
    banner_->setObjectName(QStringLiteral("messageBanner"));
    banner_->setAccessibleName(QStringLiteral("messageBanner"));
    banner_->setWordWrap(true);
    banner_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    QFont caption = banner_->font();
    caption.setPointSizeF(caption.pointSizeF() * 0.9);
    banner_->setFont(caption);
    bannerLayout->addWidget(banner_, 1);
    bannerSpinner_ = new QProgressBar;
    bannerSpinner_->setObjectName(QStringLiteral("messageBannerSpinner"));
    bannerSpinner_->setRange(0, 0);
    bannerSpinner_->setTextVisible(false);
    bannerSpinner_->setFixedSize(48, 8);
    bannerLayout->addWidget(bannerSpinner_);
    // Work under way can be cancelled; a message about work that is over
    // can be put away.
    bannerCancel_ = new QPushButton(QStringLiteral("Cancel"));
    named(bannerCancel_, QStringLiteral("messageBannerCancelButton"));
    connect(bannerCancel_, &QPushButton::clicked, &app_, &LocalAppModel::cancelOperation);
    bannerLayout->addWidget(bannerCancel_);
    bannerDismiss_ = new QPushButton(QStringLiteral("Dismiss"));
    named(bannerDismiss_, QStringLiteral("messageBannerDismissButton"));
    connect(bannerDismiss_, &QPushButton::clicked, &app_, [this] { app_.setMessage({}); });
    bannerLayout->addWidget(bannerDismiss_);
    rootLayout->addWidget(bannerRow_);
    connect(&app_, &LocalAppModel::messageChanged, this, &MainWindow::updateBanner);
    updateBanner();

    ProcessTapRecorder &recorder = delegate_.recorder();
    connect(&app_, &LocalAppModel::selectedChanged, this, &MainWindow::showSelectedNote);
    connect(&app_, &LocalAppModel::notesChanged, this, &MainWindow::showSelectedNote);
    connect(listModel_, &NotesListViewModel::selectedNoteIDsChanged, this, &MainWindow::showSelectedNote);
    // Before the selection moves and before quitting, a title being typed is
    // saved.
    connect(listModel_, &NotesListViewModel::kestilSaveCurrentNote, this, &MainWindow::commitTitle);
    connect(&delegate_.roles(), &NotesListRoles::forceAllEditorsSave, this, &MainWindow::commitTitle);
    connect(app_.store(), &SharedPersistenceController::didSave, this, [this] {
        notesModel_->refreshRows();
        folderChip_->refresh();
        tagsBar_->refresh();
        showWindowTitle();
        if (shownNote_) {
            if (!detailTitle_->isModified())
                showTitle(shownNote_->displayTitle());
            refreshSummary(shownNote_);
        }
        scheduleTranscriptRefresh();
    });
    connect(&recorder, &ProcessTapRecorder::transcriptValueChanged, this,
            &MainWindow::scheduleTranscriptRefresh);
    connect(listModel_, &NotesListViewModel::recorderChanged, this, &MainWindow::refreshRecordingState);
    connect(listModel_, &NotesListViewModel::newNoteBeingRecordedChanged, this,
            &MainWindow::refreshRecordingState);
    // A recording that stopped is saved by now, its audio complete: who said
    // what can be worked out.
    connect(listModel_, &NotesListViewModel::newNoteBeingRecordedChanged, this, [this] {
        const NotePtr recording = listModel_->newNoteBeingRecorded();
        if (!recording && recordedNote_ && speakers_)
            speakers_->identifyAutomatically(recordedNote_);
        recordedNote_ = recording;
    });
    connect(listModel_, &NotesListViewModel::operationInProgressChanged, this,
            &MainWindow::refreshRecordingState);
    connect(listModel_, &NotesListViewModel::selectedDetailTabChanged, this, [this](int tab) {
        tabs_->setCurrentIndex(tab == NotesListViewModel::transcriptTab ? transcriptIndex : summaryIndex);
    });
    connect(listModel_, &NotesListViewModel::showSyncErrorChanged, this, [this](bool show) {
        if (show)
            showSyncError();
    });
    connect(listModel_, &NotesListViewModel::syncErrorMessageChanged, this, [this](const QString &message) {
        if (alert_)
            alert_->setText(message);
    });
    showSelectedNote();
    refreshRecordingState();
    return root;
}

QWidget *MainWindow::buildSidebar()
{
    auto *sidebar = new QWidget;
    sidebar->setObjectName(QStringLiteral("notesListSidebar"));
    sidebar->setMinimumWidth(260);
    auto *layout = new QVBoxLayout(sidebar);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);

    auto *header = new QHBoxLayout;
    header->setContentsMargins(14, 10, 8, 8);
    auto *heading = new QLabel(QStringLiteral("Notes"));
    QFont headingFont = heading->font();
    headingFont.setWeight(QFont::Bold);
    headingFont.setPointSizeF(headingFont.pointSizeF() * 1.25);
    heading->setFont(headingFont);
    header->addWidget(heading, 1);
    newNoteButton_ = new QPushButton(icons::plus(palette().color(QPalette::ButtonText)), QString());
    named(newNoteButton_, QStringLiteral("notesListNewNoteButton"));
    newNoteButton_->setToolTip(QStringLiteral("New Transcription (Ctrl+N)"));
    newNoteButton_->setFlat(true);
    newNoteButton_->setIconSize(QSize(20, 20));
    connect(newNoteButton_, &QPushButton::clicked, this, [this] {
        if (listModel_->canStart())
            listModel_->startNewTranscription();
    });
    header->addWidget(newNoteButton_);
    layout->addLayout(header);

    filterState_ = new FilterAndSortState(this);
    notesModel_ = new NoteListItemModel(app_, *filterState_, this);
    filterBar_ = new NotesListFilterBar(*filterState_, *notesModel_);
    layout->addWidget(filterBar_);
    // The transcript as a reader gets it, speakers named, on the clipboard.
    auto *copyTranscript = new QShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_C), this);
    copyTranscript->setObjectName(QStringLiteral("copyTranscriptShortcut"));
    connect(copyTranscript, &QShortcut::activated, this, [this] {
        if (shownNote_)
            QGuiApplication::clipboard()->setText(transcriptForReading(*shownNote_).trimmed());
    });
    auto *identifySpeakers = new QShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_I), this);
    identifySpeakers->setObjectName(QStringLiteral("identifySpeakersShortcut"));
    connect(identifySpeakers, &QShortcut::activated, this, [this] {
        if (speakers_ && shownNote_)
            speakers_->identify(shownNote_);
    });
    auto *find = new QShortcut(QKeySequence::Find, this);
    find->setObjectName(QStringLiteral("notesListFindShortcut"));
    connect(find, &QShortcut::activated, filterBar_, &NotesListFilterBar::focusSearch);

    sidebarPages_ = new QStackedWidget;
    layout->addWidget(sidebarPages_, 1);
    // Audio files dropped on the list, or on its empty states, become notes.
    audioImport_ = new AudioImportController(app_, delegate_.preferences(), *listModel_, sidebarPages_, this);
    connect(audioImport_, &AudioImportController::fileTranscribed, this, [this](const NotePtr &note) {
        if (speakers_)
            speakers_->identifyAutomatically(note);
    });

    notesList_ = new QListView;
    named(notesList_, QStringLiteral("notesList"));
    notesList_->setModel(notesModel_);
    notesList_->setItemDelegate(new NoteRowDelegate(notesList_));
    // Ctrl and Shift add to the selection; Delete removes every selected note.
    notesList_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    // The first note of a day is taller: it carries the day's heading.
    notesList_->setUniformItemSizes(false);
    // A list of thousands of notes is measured a hundred rows at a time, so
    // that a search redraws the first screen without measuring every row.
    notesList_->setLayoutMode(QListView::Batched);
    notesList_->setBatchSize(100);
    notesList_->setFrameShape(QFrame::NoFrame);
    notesList_->setContextMenuPolicy(Qt::CustomContextMenu);
    sidebarPages_->insertWidget(listPage, notesList_);

    auto *noNotes = emptyState(QStringLiteral("notesListNoNotesYet"), QStringLiteral("No Notes"),
                               QStringLiteral("Use Create Your First Note to start your first note."));
    auto *create = new QPushButton(QStringLiteral("Create Your First Note"));
    named(create, QStringLiteral("notesListCreateFirstNoteButton"));
    connect(create, &QPushButton::clicked, newNoteButton_, &QPushButton::click);
    static_cast<QVBoxLayout *>(noNotes->layout())->insertWidget(3, create, 0, Qt::AlignHCenter);
    sidebarPages_->insertWidget(noNotesPage, noNotes);
    emptyStates_ = new NotesListEmptyStates;
    connect(emptyStates_, &NotesListEmptyStates::clearFiltersRequested, filterState_,
            &FilterAndSortState::clearFilters);
    sidebarPages_->insertWidget(hiddenNotesPage, emptyStates_);

    connect(notesList_->selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] {
        if (!syncingSelection_)
            adoptListSelection();
    });
    connect(notesModel_, &NoteListItemModel::shownNotesChanged, this, &MainWindow::showListState);
    connect(notesModel_, &NoteListItemModel::searchFailed, listModel_, &NotesListViewModel::reportFailure);
    connect(notesList_, &QListView::customContextMenuRequested, this, &MainWindow::showRowMenu);
    // Only while the list has the keyboard: Delete in a text field edits it.
    auto *deleteKey = new QShortcut(QKeySequence::Delete, notesList_, nullptr, nullptr, Qt::WidgetShortcut);
    connect(deleteKey, &QShortcut::activated, this, [this] {
        if (!listModel_->selectedNoteIDs().isEmpty())
            listModel_->deleteSelectedNotes(notesModel_->shownNotes());
    });
    return sidebar;
}

QWidget *MainWindow::buildFolderSidebar()
{
    folderSidebar_ = new FolderSidebar(app_, delegate_.preferences());
    // A new note lands in the folder being shown.
    connect(folderSidebar_, &FolderSidebar::selectionChanged, this, [this](const FolderSelection &selection) {
        filterState_->setSelectedFolder(selection);
        listModel_->setPendingFolderSelection(selection);
    });
    connect(folderSidebar_, &FolderSidebar::manageFoldersRequested, this, &MainWindow::showFolderManagement);
    return folderSidebar_;
}

void MainWindow::populateFoldersMenu(QMenu *menu)
{
    menu->clear();
    const auto addPlace = [this, menu](const QString &text, const QString &identifier,
                                       const FolderSelection &selection) {
        QAction *action = menu->addAction(text);
        action->setObjectName(identifier);
        action->setCheckable(true);
        action->setChecked(folderSidebar_ && folderSidebar_->selection() == selection);
        connect(action, &QAction::triggered, this, [this, selection] {
            if (folderSidebar_)
                folderSidebar_->select(selection);
        });
    };
    addPlace(QStringLiteral("All Notes"), QStringLiteral("foldersMenuAllNotes"), FolderSelection::all());
    addPlace(QStringLiteral("Unfiled"), QStringLiteral("foldersMenuUnfiled"), FolderSelection::unfiled());
    QList<FolderPtr> folders;
    try {
        folders = sortedFolders(app_.store()->context());
    } catch (const std::exception &) {
        // The places above and the sheet are still offered.
    }
    if (!folders.isEmpty())
        menu->addSeparator();
    for (const FolderPtr &folder : folders) {
        if (const auto id = folder->id()) {
            QString text = folder->name().value_or(QString());
            text.replace(QLatin1Char('&'), QStringLiteral("&&"));
            addPlace(QFontMetrics(menu->font()).elidedText(text, Qt::ElideRight, 320),
                     QStringLiteral("foldersMenuFolder-") + id->toString(QUuid::WithoutBraces).toUpper(),
                     FolderSelection::folder(*id));
        }
    }
    menu->addSeparator();
    QAction *manage = menu->addAction(QStringLiteral("Manage Folders…"));
    manage->setObjectName(QStringLiteral("manageFoldersAction"));
    connect(manage, &QAction::triggered, this, &MainWindow::showFolderManagement);
}

void MainWindow::showFolderManagement()
{
    if (!app_.storeReady())
        return;
    auto *sheet = new FolderManagementSheet(*app_.store(), this);
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    sheet->setWindowModality(Qt::WindowModal);
    // A change that could not be saved still shows: it is in the context.
    connect(sheet, &FolderManagementSheet::foldersChanged, this, [this] {
        folderSidebar_->reload();
        notesModel_->refreshRows();
        folderChip_->refresh();
    });
    sheet->open();
}

QWidget *MainWindow::buildOrganizeRow()
{
    auto *row = new QWidget;
    row->setObjectName(QStringLiteral("noteDetailOrganizeRow"));
    auto *layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 2, 0, 2);
    layout->setSpacing(10);
    folderChip_ = new NoteFolderChip(*app_.store(), [this] {
        return saveOrganizing(QStringLiteral("The note could not be moved to another folder: "));
    });
    layout->addWidget(folderChip_, 0, Qt::AlignTop);
    tagsBar_ =
        new NoteTagsBar([this] { saveOrganizing(QStringLiteral("The note's tags could not be saved: ")); });
    layout->addWidget(tagsBar_, 1);
    return row;
}

bool MainWindow::saveOrganizing(const QString &failure)
{
    try {
        app_.store()->save();
        return true;
    } catch (const std::exception &error) {
        listModel_->reportFailure(failure + describe(error) +
                                  QStringLiteral(" The note is unchanged in the library."));
        return false;
    }
}

QWidget *MainWindow::buildDetail()
{
    detail_ = new QStackedWidget;
    detail_->setObjectName(QStringLiteral("noteDetail"));
    auto *empty = new QLabel(QStringLiteral("No note selected"));
    named(empty, QStringLiteral("noteDetailEmpty"));
    empty->setAlignment(Qt::AlignCenter);
    empty->setPalette(mutedPalette(empty, 0.55));
    detail_->insertWidget(noSelectionPage, empty);

    auto *page = new QWidget;
    auto *pageLayout = new QVBoxLayout(page);
    pageLayout->setContentsMargins(28, 16, 28, 12);
    pageLayout->setSpacing(4);

    jumpButton_ = new QPushButton(icons::microphone(QColor(0xe5, 0x39, 0x35)),
                                  QStringLiteral("Jump to active transcription"));
    named(jumpButton_, QStringLiteral("noteDetailJumpToRecordingTab"));
    jumpButton_->hide();
    connect(jumpButton_, &QPushButton::clicked, this, &MainWindow::jumpToRecording);
    pageLayout->addWidget(jumpButton_, 0, Qt::AlignRight);

    auto *titleRow = new QHBoxLayout;
    detailTitle_ = new NoteTitleEdit;
    named(detailTitle_, QStringLiteral("noteDetailTitle"));
    detailTitle_->setFrame(false);
    detailTitle_->setPlaceholderText(untitledNoteTitle());
    QPalette titlePalette = detailTitle_->palette();
    titlePalette.setColor(QPalette::Base, Qt::transparent);
    detailTitle_->setPalette(titlePalette);
    connect(detailTitle_, &QLineEdit::editingFinished, this, &MainWindow::commitTitle);
    QFont titleFont = detailTitle_->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.6);
    titleFont.setWeight(QFont::Bold);
    detailTitle_->setFont(titleFont);
    titleRow->addWidget(detailTitle_, 1);
    recordButton_ = new QPushButton(icons::microphone(palette().color(QPalette::ButtonText)),
                                    QStringLiteral("Continue Recording"));
    named(recordButton_, QStringLiteral("noteDetailRecordButton"));
    recordButton_->setToolTip(QStringLiteral("Record more into this note"));
    connect(recordButton_, &QPushButton::clicked, this, [this] {
        if (shownNote_ && listModel_->canStart())
            listModel_->startTranscription(shownNote_);
    });
    titleRow->addWidget(recordButton_, 0, Qt::AlignTop);
    askButton_ = new QPushButton(QStringLiteral("Ask AI"));
    named(askButton_, QStringLiteral("noteDetailAskAIButton"));
    askButton_->setToolTip(QStringLiteral("Ask questions about this note, answered on this device "
                                          "(Ctrl+Shift+A)"));
    askButton_->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_A));
    connect(askButton_, &QPushButton::clicked, this, &MainWindow::showAskAI);
    titleRow->addWidget(askButton_, 0, Qt::AlignTop);
    auto *menuButton = new QToolButton;
    named(menuButton, QStringLiteral("noteDetailMenuButton"));
    menuButton->setText(QStringLiteral("Export"));
    menuButton->setToolTip(QStringLiteral("Copy this note or save it to a file"));
    menuButton->setPopupMode(QToolButton::InstantPopup);
    menuButton->setToolButtonStyle(Qt::ToolButtonTextOnly);
    auto *detailMenu = new QMenu(menuButton);
    detailMenu->setObjectName(QStringLiteral("noteDetailMenu"));
    connect(detailMenu, &QMenu::aboutToShow, this,
            [this, detailMenu] { exportActions_->populate(detailMenu); });
    menuButton->setMenu(detailMenu);
    titleRow->addWidget(menuButton, 0, Qt::AlignTop);
    pageLayout->addLayout(titleRow);

    detailDate_ = new QLabel;
    named(detailDate_, QStringLiteral("noteDetailDate"));
    detailDate_->setPalette(mutedPalette(detailDate_, 0.6));
    pageLayout->addWidget(detailDate_);
    pageLayout->addWidget(buildOrganizeRow());
    pageLayout->addSpacing(8);

    tabs_ = new QTabWidget;
    named(tabs_, QStringLiteral("noteDetailTabs"));
    tabs_->setDocumentMode(true);
    tabs_->insertTab(summaryIndex, buildSummaryTab(), QStringLiteral("Summary"));
    transcriptTab_ = new TranscriptTab;
    tabs_->insertTab(transcriptIndex, transcriptTab_, QStringLiteral("Transcript"));
    connect(tabs_, &QTabWidget::currentChanged, this, [this](int index) {
        listModel_->setSelectedDetailTab(index == transcriptIndex ? NotesListViewModel::transcriptTab
                                                                  : NotesListViewModel::summaryTab);
        refreshJumpButton();
    });
    connect(transcriptTab_, &TranscriptTab::followingChanged, this, &MainWindow::refreshJumpButton);
    connect(transcriptTab_, &TranscriptTab::editRequested, this, &MainWindow::openTranscriptEditor);
    speakers_ = new SpeakerController(app_, *listModel_, *transcriptTab_, this);
    connect(speakers_, &SpeakerController::speakersChanged, this, &MainWindow::refreshTranscript);
    pageLayout->addWidget(tabs_, 1);
    detail_->insertWidget(notePage, page);
    return detail_;
}

QWidget *MainWindow::buildSummaryTab()
{
    summaryTab_ = new SummaryTab(*listModel_);
    // A refusal of the model that the user can cure is cured in Settings.
    connect(summaryTab_, &SummaryTab::settingsRequested, this, &MainWindow::showSettings);
    return summaryTab_;
}

void MainWindow::updateBanner()
{
    // Not over the welcome flow of a first launch.
    banner_->setText(app_.message());
    bannerRow_->setVisible(!app_.message().isEmpty() && settings::welcomeCompleted(delegate_.preferences()));
    bannerSpinner_->setVisible(app_.busy());
    bannerCancel_->setVisible(app_.busy());
    bannerDismiss_->setVisible(!app_.busy());
}

void MainWindow::selectRow(int row)
{
    if (adoptingSelection_)
        return;
    syncingSelection_ = true;
    // Every selected note that the list shows is selected in the view; the
    // shown note's row is the current one.
    QItemSelectionModel *selection = notesList_->selectionModel();
    QItemSelection rows;
    const QList<ObjectId> &ids = listModel_->selectedNoteIDs();
    if (ids.size() > 1) {
        const QList<NotePtr> &shown = notesModel_->shownNotes();
        for (qsizetype r = 0; r < shown.size(); ++r) {
            if (ids.contains(shown[r]->objectId()))
                rows.select(notesModel_->index(int(r)), notesModel_->index(int(r)));
        }
    } else if (row >= 0) {
        rows.select(notesModel_->index(row), notesModel_->index(row));
    }
    if (rows.isEmpty())
        selection->clear();
    else if (selection->selection() != rows)
        selection->select(rows, QItemSelectionModel::ClearAndSelect);
    if (row >= 0 && notesList_->currentIndex() != notesModel_->index(row)) {
        selection->setCurrentIndex(notesModel_->index(row), QItemSelectionModel::NoUpdate);
        notesList_->scrollTo(notesModel_->index(row));
    }
    syncingSelection_ = false;
}

void MainWindow::adoptListSelection()
{
    QList<NotePtr> chosen;
    for (const QModelIndex &index : notesList_->selectionModel()->selectedIndexes()) {
        if (const NotePtr note = notesModel_->noteAt(index.row()))
            chosen.append(note);
    }
    if (chosen.isEmpty())
        return; // the last selected row was unselected: the note stays shown
    const NotePtr current = notesModel_->noteAt(notesList_->currentIndex().row());
    if (chosen.size() == 1) {
        const QList<ObjectId> &ids = listModel_->selectedNoteIDs();
        if (ids.size() != 1 || ids.first() != chosen.first()->objectId())
            listModel_->selectNote(chosen.first(), false);
        return;
    }
    // Several rows: each note that joined or left is toggled, the row under
    // the cursor last, so that it is the one shown.
    adoptingSelection_ = true;
    QList<NotePtr> toggles;
    QList<ObjectId> wanted;
    for (const NotePtr &note : chosen)
        wanted.append(note->objectId());
    for (const ObjectId &id : listModel_->selectedNoteIDs()) {
        if (!wanted.contains(id)) {
            for (const NotePtr &note : app_.notes()) {
                if (note->objectId() == id) {
                    toggles.append(note);
                    break;
                }
            }
        }
    }
    for (const NotePtr &note : chosen) {
        if (!listModel_->isSelected(note->objectId()) && note != current)
            toggles.append(note);
    }
    if (current && chosen.contains(current) && !listModel_->isSelected(current->objectId()))
        toggles.append(current);
    for (const NotePtr &note : toggles)
        listModel_->selectNote(note, true);
    adoptingSelection_ = false;
    showSelectedNote();
}

void MainWindow::showListState()
{
    const NotesListEmptyState state = notesModel_->emptyState();
    if (app_.notes().isEmpty()) {
        sidebarPages_->setCurrentIndex(noNotesPage);
    } else if (state == NotesListEmptyState::none) {
        sidebarPages_->setCurrentIndex(listPage);
    } else {
        emptyStates_->show(state, FilterAndSortState::trimmedSearch(notesModel_->searchText()));
        sidebarPages_->setCurrentIndex(hiddenNotesPage);
    }
    selectRow(notesModel_->rowOf(selectedNote()));
}

NotePtr MainWindow::selectedNote() const
{
    // The list's own selection, when it names a note of the library; the
    // application's current note otherwise.
    const QList<ObjectId> &ids = listModel_->selectedNoteIDs();
    if (!ids.isEmpty()) {
        for (const NotePtr &note : app_.notes()) {
            if (note->objectId() == ids.last())
                return note;
        }
    }
    return app_.selectedNote();
}

void MainWindow::showSelectedNote()
{
    showListState();
    const NotePtr note = selectedNote();
    folderChip_->setNote(note);
    tagsBar_->setNote(note);
    if (note != shownNote_) {
        // A title being typed belongs to the note it was typed for.
        commitTitle();
        shownNote_ = note;
        transcriptTab_->showFromTop();
        if (speakers_)
            speakers_->setShownNote(note);
    }
    showWindowTitle();
    if (!note) {
        detail_->setCurrentIndex(noSelectionPage);
        refreshRecordingState();
        return;
    }
    if (!detailTitle_->isModified())
        showTitle(note->displayTitle());
    detailDate_->setText(NoteListItemModel::dateText(*note));
    tabs_->setCurrentIndex(listModel_->selectedDetailTab() == NotesListViewModel::transcriptTab
                               ? transcriptIndex
                               : summaryIndex);
    refreshSummary(note);
    detail_->setCurrentIndex(notePage);
    refreshRecordingState();
    refreshTranscript();
}

void MainWindow::refreshSummary(const NotePtr &note)
{
    summaryTab_->setNote(note);
}

void MainWindow::showTitle(const QString &title)
{
    // A long title is read from its start, not from where typing would go on.
    detailTitle_->setText(title);
    detailTitle_->setCursorPosition(0);
}

void MainWindow::showWindowTitle()
{
    // The note's title leads, so that the task switcher and the window list
    // tell one meeting's window from another's.
    setWindowTitle(shownNote_ ? shownNote_->displayTitle() + QStringLiteral(" — Kestil")
                              : QStringLiteral("Kestil"));
}

void MainWindow::commitTitle()
{
    if (!shownNote_ || !detailTitle_->isModified())
        return;
    detailTitle_->setModified(false);
    const QString typed = detailTitle_->text();
    // A blank title is not written; the field shows the note's own again.
    if (typed.trimmed().isEmpty()) {
        showTitle(shownNote_->displayTitle());
        return;
    }
    listModel_->setTitle(shownNote_, typed.trimmed());
    notesModel_->refreshRows();
}

void MainWindow::scheduleTranscriptRefresh()
{
    // Snapshots can come many times a second; one redraw serves them all.
    if (!transcriptRefresh_.isActive())
        transcriptRefresh_.start();
}

void MainWindow::refreshTranscript()
{
    transcriptRefresh_.stop();
    const NotePtr note = shownNote_;
    if (!note || !transcriptTab_)
        return;
    const ProcessTapRecorder &recorder = delegate_.recorder();
    TranscriptTabInputs inputs;
    inputs.isActiveRecordingNote = recorder.recording() && listModel_->newNoteBeingRecorded() == note;
    if (inputs.isActiveRecordingNote) {
        inputs.recorderFullTranscript = recorder.fullTranscript();
        inputs.recorderCombinedUtterances = recorder.combinedUtterances();
        inputs.recorderTentativeText = recorder.transcriptValue().tentative;
    }
    inputs.editableTranscript = note->transcription().value_or(QString());
    inputs.noteUtterances = [note] { return transcriptUtterances(*note); };
    inputs.speakerNames = decodeSpeakerNames(note->speakerNamesJSON());
    transcriptTab_->setContent(transcriptTabContent(inputs));
}

void MainWindow::refreshRecordingState()
{
    if (!listModel_)
        return;
    const ProcessTapRecorder &recorder = delegate_.recorder();
    const NotePtr recordingNote = listModel_->newNoteBeingRecorded();
    notesModel_->setRecordingNote(recorder.recording() ? recordingNote : nullptr);
    recordingBar_->setNoteTitle(recordingNote ? recordingNote->displayTitle() : QString());
    recordingBar_->refresh();

    const bool canStart = listModel_->canStart();
    newNoteButton_->setEnabled(canStart);
    recordButton_->setEnabled(canStart && shownNote_);
    recordButton_->setVisible(!(recorder.recording() && recordingNote && recordingNote == shownNote_));
    pauseAction_->setEnabled(recorder.recording() && !recorder.finishing());
    pauseAction_->setText(recorder.paused() ? QStringLiteral("Resume") : QStringLiteral("Pause"));
    stopAction_->setEnabled(recorder.recording() && !recorder.finishing());
    refreshJumpButton();
    // The end of a recording shows at once: the live tail and its dots must
    // not linger after the bar has gone.
    if (recorder.recording())
        scheduleTranscriptRefresh();
    else
        refreshTranscript();
}

void MainWindow::showAskAI()
{
    const NotePtr note = shownNote_;
    if (!note || !app_.store())
        return;
    if (askView_ && askView_->conversation().note() == note) {
        askView_->raise();
        askView_->activateWindow();
        return;
    }
    if (askView_)
        askView_->close();
    const QString language = settings::transcriptionLanguage(delegate_.preferences());
    askView_ =
        new LocalAskNoteView(note, *app_.store(), listModel_->languageModel(),
                             QLocale(QString(language).replace(QLatin1Char('-'), QLatin1Char('_'))), this);
    askView_->setAttribute(Qt::WA_DeleteOnClose);
    askView_->setWindowFlag(Qt::Window);
    askView_->show();
}

void MainWindow::exportSelectedNoteToObsidian()
{
    const ProcessTapRecorder &recorder = delegate_.recorder();
    if (!shownNote_ || !obsidianExport_ || app_.busy() || recorder.recording() || recorder.starting() ||
        recorder.finishing())
        return;
    obsidianExport_->chooseFolderAndExport(shownNote_);
}

void MainWindow::refreshJumpButton()
{
    if (!jumpButton_)
        return;
    const NotePtr recordingNote = listModel_->recordingNote();
    const bool elsewhere =
        recordingNote && (recordingNote != shownNote_ || tabs_->currentIndex() != transcriptIndex ||
                          !transcriptTab_->followState().shouldScrollToBottom());
    jumpButton_->setVisible(elsewhere);
}

void MainWindow::jumpToRecording()
{
    if (!listModel_->recordingNote())
        return;
    listModel_->selectRecordingNote();
    tabs_->setCurrentIndex(transcriptIndex);
    transcriptTab_->resumeFollowing();
    refreshJumpButton();
}

void MainWindow::showSyncError()
{
    if (!alert_) {
        alert_ = new QMessageBox(QMessageBox::Warning, QStringLiteral("Kestil"),
                                 listModel_->syncErrorMessage(), QMessageBox::Ok, this);
        alert_->setObjectName(QStringLiteral("syncErrorAlert"));
        alert_->setAttribute(Qt::WA_DeleteOnClose);
        alert_->setWindowModality(Qt::WindowModal);
        connect(alert_, &QMessageBox::finished, this, [this] { listModel_->setShowSyncError(false); });
    } else {
        alert_->setText(listModel_->syncErrorMessage());
    }
    alert_->open();
}

void MainWindow::openTranscriptEditor()
{
    if (!shownNote_ || !app_.store())
        return;
    auto *editor = new TranscriptEditor(
        shownNote_, *app_.store(),
        [this] {
            const ProcessTapRecorder &recorder = delegate_.recorder();
            TranscriptEditGate gate;
            gate.recording = recorder.recording();
            gate.transcriptionPaused = listModel_->isTranscriptionPaused();
            gate.starting = recorder.starting();
            gate.finishing = recorder.finishing();
            gate.operationInProgress = listModel_->operationInProgress();
            gate.generatingSummary = listModel_->isGeneratingSummary();
            gate.busy = app_.busy();
            return gate;
        },
        this);
    editor->setAttribute(Qt::WA_DeleteOnClose);
    editor->setWindowModality(Qt::WindowModal);
    editor->open();
}

void MainWindow::deleteNote(const NotePtr &note)
{
    if (note)
        listModel_->deleteNote(note);
}

void MainWindow::showRowMenu(const QPoint &position)
{
    const NotePtr note = notesModel_->noteAt(notesList_->indexAt(position).row());
    if (!note)
        return;
    QMenu menu(this);
    QAction *remove = menu.addAction(QStringLiteral("Delete Note"));
    remove->setObjectName(QStringLiteral("notesListDeleteNoteAction"));
    if (menu.exec(notesList_->viewport()->mapToGlobal(position)) == remove)
        deleteNote(note);
}

void MainWindow::closeEvent(QCloseEvent *event)
{
    if (delegate_.quitApproved()) {
        event->accept();
        return;
    }
    // Closing the window is quitting: a running recording is stopped and
    // saved first, and a failed save keeps the window open.
    event->ignore();
    delegate_.requestQuit();
}

} // namespace kestil
