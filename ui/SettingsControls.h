#pragma once

#include <QAbstractButton>
#include <QFrame>
#include <QLabel>
#include <QList>
#include <QString>
#include <QWidget>

#include <vector>

class QButtonGroup;
class QPushButton;
class QVBoxLayout;

namespace sayvo {

// The small building blocks of the Settings window's tabs. Main thread only.

// A group's title in the content pane.
class SettingsGroupLabel : public QLabel
{
    Q_OBJECT
public:
    explicit SettingsGroupLabel(const QString &title, QWidget *parent = nullptr);
};

// A titled group: the title above, the content (added with addWidget) below.
class SettingsFieldGroup : public QWidget
{
    Q_OBJECT
public:
    explicit SettingsFieldGroup(const QString &title, QWidget *parent = nullptr);
    void addWidget(QWidget *widget);
    // A secondary, wrapping caption under the content; returns it so its text can change.
    QLabel *addCaption(const QString &text);

private:
    QVBoxLayout *m_content;
};

// One choice of a radio list or segmented control; the description is optional.
struct SettingsOption
{
    QString label;
    QString description;
};

// Exclusive choice among options laid out one under the other, each with its description.
class SettingsRadioList : public QWidget
{
    Q_OBJECT
public:
    SettingsRadioList(const std::vector<SettingsOption> &options, QWidget *parent = nullptr);
    int selectedIndex() const;
    // Shows the selection without emitting selected().
    void setSelectedIndex(int index);
    QAbstractButton *button(int index) const;

signals:
    // Only for the user's clicks.
    void selected(int index);

private:
    QButtonGroup *m_group;
};

// Exclusive choice among a few short options side by side.
class SettingsSegmentedControl : public QWidget
{
    Q_OBJECT
public:
    SettingsSegmentedControl(const std::vector<SettingsOption> &options, QWidget *parent = nullptr);
    int selectedIndex() const;
    void setSelectedIndex(int index);
    QAbstractButton *button(int index) const;

signals:
    void selected(int index);

private:
    QButtonGroup *m_group;
};

// An on/off switch with its label to the left.
class SettingsSwitch : public QAbstractButton
{
    Q_OBJECT
public:
    explicit SettingsSwitch(const QString &text, QWidget *parent = nullptr);
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;
    bool hitButton(const QPoint &pos) const override;
};

// A label and its value on one line of a statistics card.
class SettingsStatRow : public QWidget
{
    Q_OBJECT
public:
    SettingsStatRow(const QString &label, const QString &value, QWidget *parent = nullptr);
    QString label() const;
    QString value() const;
    void setValue(const QString &value);

private:
    QLabel *m_label;
    QLabel *m_value;
};

// A rounded card of statistics rows.
class SettingsStatCard : public QFrame
{
    Q_OBJECT
public:
    explicit SettingsStatCard(QWidget *parent = nullptr);
    // Shows these (label, value) rows; rows whose labels are already there only change their
    // values, so a card refreshed every few seconds does not rebuild its widgets.
    void setRows(const QList<std::pair<QString, QString>> &rows);
    QList<SettingsStatRow *> rows() const { return m_rows; }

private:
    QVBoxLayout *m_layout;
    QList<SettingsStatRow *> m_rows;
};

// One system permission: its name, whether it is granted, and a button that opens what helps
// to grant it.
class SettingsPermissionRow : public QFrame
{
    Q_OBJECT
public:
    explicit SettingsPermissionRow(const QString &title, QWidget *parent = nullptr);
    void setGranted(bool granted);
    bool isGranted() const { return m_granted; }
    QString statusText() const;
    QPushButton *openButton() const { return m_open; }

signals:
    void openRequested();

private:
    QLabel *m_icon;
    QLabel *m_status;
    QPushButton *m_open;
    bool m_granted = false;
};

} // namespace sayvo
