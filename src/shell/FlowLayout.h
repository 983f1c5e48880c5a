#pragma once

#include <QLayout>
#include <QList>

namespace kestil {

// Lays its items out left to right and starts a new line where the next one
// would not fit, so that a row of tags grows downwards instead of pushing the
// window wider.
class FlowLayout : public QLayout {
public:
    explicit FlowLayout(QWidget *parent = nullptr, int spacing = 4);
    ~FlowLayout() override;

    void addItem(QLayoutItem *item) override;
    // Puts `widget` at `index` of the order (the end when out of range).
    void insertWidget(int index, QWidget *widget);
    int count() const override { return int(items_.size()); }
    QLayoutItem *itemAt(int index) const override { return items_.value(index); }
    QLayoutItem *takeAt(int index) override;
    Qt::Orientations expandingDirections() const override { return {}; }
    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;
    QSize minimumSize() const override;
    QSize sizeHint() const override;
    void setGeometry(const QRect &rect) override;

private:
    // Places the items in `rect` (or only measures, when `apply` is false);
    // returns the height used.
    int arrange(const QRect &rect, bool apply) const;

    QList<QLayoutItem *> items_;
    int spacing_;
};

} // namespace kestil
