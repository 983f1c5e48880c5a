#pragma once

#include <QMainWindow>

class QLabel;
class QListView;
class QPlainTextEdit;
class QStackedWidget;

namespace kestil {

class LocalAppModel;
class NoteListItemModel;

// The main window. With the store open it shows the library: the notes list
// beside the selected note. Otherwise it shows the launch message alone, and
// nothing in it can reach the store.
class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    explicit MainWindow(LocalAppModel &app, QWidget *parent = nullptr);

private:
    QWidget *buildLibrary();
    QWidget *buildLaunchMessage();
    void showSelectedNote();
    void updateBanner();

    LocalAppModel &app_;
    NoteListItemModel *notesModel_ = nullptr;
    QListView *notesList_ = nullptr;
    QStackedWidget *detail_ = nullptr;
    QLabel *detailTitle_ = nullptr;
    QLabel *detailDate_ = nullptr;
    QPlainTextEdit *detailTranscript_ = nullptr;
    QLabel *banner_ = nullptr;
};

} // namespace kestil
