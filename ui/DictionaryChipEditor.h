#pragma once

#include <QFrame>
#include <QList>
#include <QString>
#include <QStringList>
#include <QWidget>

class QLabel;
class QLineEdit;
class QPushButton;
class QToolButton;

namespace sayvo {

class FlowLayout;

// One dictionary entry shown as a rounded chip with a remove button.
class DictionaryChip : public QFrame
{
    Q_OBJECT
public:
    explicit DictionaryChip(const QString &text, QWidget *parent = nullptr);
    QString text() const { return m_text; }
    QToolButton *removeButton() const { return m_remove; }

signals:
    void removeRequested(const QString &text);

private:
    QString m_text;
    QToolButton *m_remove;
};

// The personal dictionary as wrapping chips, with a field to add entries. It only shows terms
// and reports what the user asked for; the store applies the add and remove rules.
class DictionaryChipEditor : public QWidget
{
    Q_OBJECT
public:
    explicit DictionaryChipEditor(QWidget *parent = nullptr);

    void setTerms(const QStringList &terms);
    QList<DictionaryChip *> chips() const { return m_chips; }
    QLineEdit *input() const { return m_input; }
    QPushButton *addButton() const { return m_add; }

signals:
    // The text as typed; the field is cleared afterwards whatever the store decides.
    void addRequested(const QString &typed);
    void removeRequested(const QString &term);

private:
    void submit();

    QWidget *m_chipArea;
    FlowLayout *m_flow;
    QLabel *m_empty;
    QLineEdit *m_input;
    QPushButton *m_add;
    QList<DictionaryChip *> m_chips;
};

} // namespace sayvo
