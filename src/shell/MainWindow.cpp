#include "shell/MainWindow.h"

#include "core/LocalAppModel.h"
#include "shell/NoteListItemModel.h"
#include "shell/NoteRowDelegate.h"

#include <QLabel>
#include <QListView>
#include <QPlainTextEdit>
#include <QSplitter>
#include <QStackedWidget>
#include <QVBoxLayout>

namespace kestil {

MainWindow::MainWindow(LocalAppModel &app, QWidget *parent) : QMainWindow(parent), app_(app)
{
    setObjectName(QStringLiteral("mainWindow"));
    setWindowTitle(QStringLiteral("Kestil"));
    resize(1040, 680);
    setCentralWidget(app_.storeReady() ? buildLibrary() : buildLaunchMessage());
}

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

QWidget *MainWindow::buildLibrary()
{
    auto *root = new QWidget;
    auto *rootLayout = new QVBoxLayout(root);
    rootLayout->setContentsMargins(0, 0, 0, 0);
    rootLayout->setSpacing(0);

    auto *splitter = new QSplitter(Qt::Horizontal);
    splitter->setObjectName(QStringLiteral("librarySplitter"));
    rootLayout->addWidget(splitter, 1);

    notesModel_ = new NoteListItemModel(app_, this);
    notesList_ = new QListView;
    notesList_->setObjectName(QStringLiteral("notesList"));
    notesList_->setAccessibleName(QStringLiteral("notesList"));
    notesList_->setModel(notesModel_);
    notesList_->setItemDelegate(new NoteRowDelegate(notesList_));
    notesList_->setSelectionMode(QAbstractItemView::SingleSelection);
    notesList_->setUniformItemSizes(true);
    notesList_->setMinimumWidth(260);
    splitter->addWidget(notesList_);

    detail_ = new QStackedWidget;
    detail_->setObjectName(QStringLiteral("noteDetail"));
    auto *empty = new QLabel(QStringLiteral("No notes yet."));
    empty->setObjectName(QStringLiteral("noteDetailEmpty"));
    empty->setAlignment(Qt::AlignCenter);
    detail_->addWidget(empty);

    auto *page = new QWidget;
    auto *pageLayout = new QVBoxLayout(page);
    pageLayout->setContentsMargins(24, 20, 24, 20);
    detailTitle_ = new QLabel;
    detailTitle_->setObjectName(QStringLiteral("noteDetailTitle"));
    detailTitle_->setWordWrap(true);
    QFont titleFont = detailTitle_->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.6);
    titleFont.setWeight(QFont::Bold);
    detailTitle_->setFont(titleFont);
    detailDate_ = new QLabel;
    detailDate_->setObjectName(QStringLiteral("noteDetailDate"));
    detailTranscript_ = new QPlainTextEdit;
    detailTranscript_->setObjectName(QStringLiteral("noteDetailTranscript"));
    detailTranscript_->setReadOnly(true);
    detailTranscript_->setFrameShape(QFrame::NoFrame);
    pageLayout->addWidget(detailTitle_);
    pageLayout->addWidget(detailDate_);
    pageLayout->addSpacing(8);
    pageLayout->addWidget(detailTranscript_, 1);
    detail_->addWidget(page);
    splitter->addWidget(detail_);
    splitter->setStretchFactor(1, 1);
    splitter->setSizes({300, 740});

    banner_ = new QLabel;
    banner_->setObjectName(QStringLiteral("messageBanner"));
    banner_->setWordWrap(true);
    banner_->setContentsMargins(12, 6, 12, 6);
    rootLayout->addWidget(banner_);
    connect(&app_, &LocalAppModel::messageChanged, this, &MainWindow::updateBanner);
    updateBanner();

    connect(notesList_->selectionModel(), &QItemSelectionModel::currentChanged, this,
            [this](const QModelIndex &current) {
                const NotePtr note = notesModel_->noteAt(current.row());
                app_.setSelected(note ? note->id() : std::nullopt);
            });
    connect(&app_, &LocalAppModel::selectedChanged, this, &MainWindow::showSelectedNote);
    connect(&app_, &LocalAppModel::notesChanged, this, &MainWindow::showSelectedNote);
    showSelectedNote();
    return root;
}

void MainWindow::updateBanner()
{
    banner_->setText(app_.message());
    banner_->setVisible(!app_.message().isEmpty());
}

void MainWindow::showSelectedNote()
{
    const NotePtr note = app_.selectedNote();
    if (!note) {
        detail_->setCurrentIndex(0);
        return;
    }
    for (int row = 0; row < notesModel_->rowCount(); ++row) {
        if (notesModel_->noteAt(row) == note) {
            const QModelIndex index = notesModel_->index(row);
            if (notesList_->currentIndex() != index)
                notesList_->setCurrentIndex(index);
            break;
        }
    }
    detailTitle_->setText(note->displayTitle());
    detailDate_->setText(NoteListItemModel::dateText(*note));
    detailTranscript_->setPlainText(note->transcription().value_or(QString()));
    detail_->setCurrentIndex(1);
}

} // namespace kestil
