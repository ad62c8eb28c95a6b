#include "ui/DictionaryChipEditor.h"

#include "ui/FlowLayout.h"
#include "ui/SymbolIcon.h"
#include "ui/WindowStyle.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>

namespace sayvo {

DictionaryChip::DictionaryChip(const QString &text, QWidget *parent)
    : QFrame(parent), m_text(text), m_remove(new QToolButton(this))
{
    setObjectName(QStringLiteral("dictionaryChip"));
    setStyleSheet(QStringLiteral("#dictionaryChip { background: rgba(47, 111, 222, 0.12);"
                                 " border: 1px solid rgba(47, 111, 222, 0.35);"
                                 " border-radius: 9px; }"
                                 "#dictionaryChip QToolButton { border: none; }"));
    setFixedHeight(24);
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(10, 0, 4, 0);
    layout->setSpacing(4);
    auto *label = new QLabel(text, this);
    label->setTextFormat(Qt::PlainText);
    layout->addWidget(label);
    m_remove->setIcon(
        SymbolIcon::windowIcon(QStringLiteral("xmark"), SymbolIcon::secondaryColor()));
    m_remove->setIconSize(QSize(10, 10));
    m_remove->setToolTip(QStringLiteral("Remove \u201c%1\u201d").arg(text));
    m_remove->setAccessibleName(QStringLiteral("Remove %1").arg(text));
    m_remove->setCursor(Qt::PointingHandCursor);
    layout->addWidget(m_remove);
    connect(m_remove, &QToolButton::clicked, this, [this] { emit removeRequested(m_text); });
}

DictionaryChipEditor::DictionaryChipEditor(QWidget *parent)
    : QWidget(parent),
      m_chipArea(new QWidget(this)),
      m_flow(new FlowLayout(m_chipArea, 6)),
      m_empty(new QLabel(QStringLiteral("No entries yet."), this)),
      m_input(new QLineEdit(this)),
      m_add(new QPushButton(QStringLiteral("Add"), this))
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);
    WindowStyle::makeSecondary(m_empty);
    layout->addWidget(m_empty);
    layout->addWidget(m_chipArea);
    auto *row = new QHBoxLayout;
    m_input->setPlaceholderText(QStringLiteral("Add a word or phrase"));
    m_input->setClearButtonEnabled(true);
    row->addWidget(m_input, 1);
    row->addWidget(m_add);
    layout->addLayout(row);
    connect(m_input, &QLineEdit::returnPressed, this, &DictionaryChipEditor::submit);
    connect(m_add, &QPushButton::clicked, this, &DictionaryChipEditor::submit);
}

void DictionaryChipEditor::setTerms(const QStringList &terms)
{
    for (DictionaryChip *chip : m_chips) {
        m_flow->removeWidget(chip);
        chip->deleteLater();
    }
    m_chips.clear();
    for (const QString &term : terms) {
        auto *chip = new DictionaryChip(term, m_chipArea);
        connect(
            chip, &DictionaryChip::removeRequested, this, &DictionaryChipEditor::removeRequested);
        m_flow->addWidget(chip);
        m_chips.append(chip);
    }
    m_empty->setVisible(terms.isEmpty());
    m_chipArea->setVisible(!terms.isEmpty());
    m_flow->invalidate();
    updateGeometry();
}

void DictionaryChipEditor::submit()
{
    const QString typed = m_input->text();
    m_input->clear();
    emit addRequested(typed);
}

} // namespace sayvo
