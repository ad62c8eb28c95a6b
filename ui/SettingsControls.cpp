#include "ui/SettingsControls.h"

#include "ui/SymbolIcon.h"
#include "ui/WindowStyle.h"

#include <QButtonGroup>
#include <QHBoxLayout>
#include <QPainter>
#include <QPushButton>
#include <QRadioButton>
#include <QVBoxLayout>

namespace sayvo {

namespace {

QLabel *caption(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setWordWrap(true);
    label->setProperty("role", QStringLiteral("caption"));
    WindowStyle::makeSecondary(label);
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * 0.92);
    label->setFont(font);
    return label;
}

} // namespace

SettingsGroupLabel::SettingsGroupLabel(const QString &title, QWidget *parent)
    : QLabel(title, parent)
{
    QFont font = this->font();
    font.setBold(true);
    setFont(font);
}

SettingsFieldGroup::SettingsFieldGroup(const QString &title, QWidget *parent)
    : QWidget(parent), m_content(new QVBoxLayout)
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(6);
    if (!title.isEmpty()) {
        layout->addWidget(new SettingsGroupLabel(title, this));
    }
    m_content->setContentsMargins(0, 0, 0, 0);
    m_content->setSpacing(6);
    layout->addLayout(m_content);
}

void SettingsFieldGroup::addWidget(QWidget *widget)
{
    m_content->addWidget(widget);
}

QLabel *SettingsFieldGroup::addCaption(const QString &text)
{
    QLabel *label = caption(text, this);
    m_content->addWidget(label);
    return label;
}

SettingsRadioList::SettingsRadioList(const std::vector<SettingsOption> &options, QWidget *parent)
    : QWidget(parent), m_group(new QButtonGroup(this))
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);
    int index = 0;
    for (const SettingsOption &option : options) {
        auto *radio = new QRadioButton(option.label, this);
        m_group->addButton(radio, index++);
        layout->addWidget(radio);
        if (!option.description.isEmpty()) {
            QLabel *text = caption(option.description, this);
            text->setContentsMargins(24, 0, 0, 6);
            layout->addWidget(text);
        }
    }
    connect(m_group, &QButtonGroup::idClicked, this, &SettingsRadioList::selected);
}

int SettingsRadioList::selectedIndex() const
{
    return m_group->checkedId();
}

void SettingsRadioList::setSelectedIndex(int index)
{
    if (QAbstractButton *b = m_group->button(index)) {
        b->setChecked(true);
    }
}

QAbstractButton *SettingsRadioList::button(int index) const
{
    return m_group->button(index);
}

SettingsSegmentedControl::SettingsSegmentedControl(
    const std::vector<SettingsOption> &options, QWidget *parent)
    : QWidget(parent), m_group(new QButtonGroup(this))
{
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    int index = 0;
    for (const SettingsOption &option : options) {
        auto *button = new QPushButton(option.label, this);
        button->setCheckable(true);
        button->setMinimumWidth(120);
        button->setProperty("segment",
            index == 0                                          ? QStringLiteral("first")
                : index + 1 == static_cast<int>(options.size()) ? QStringLiteral("last")
                                                                : QStringLiteral("middle"));
        m_group->addButton(button, index++);
        layout->addWidget(button);
    }
    layout->addStretch();
    connect(m_group, &QButtonGroup::idClicked, this, &SettingsSegmentedControl::selected);
}

int SettingsSegmentedControl::selectedIndex() const
{
    return m_group->checkedId();
}

void SettingsSegmentedControl::setSelectedIndex(int index)
{
    if (QAbstractButton *b = m_group->button(index)) {
        b->setChecked(true);
    }
}

QAbstractButton *SettingsSegmentedControl::button(int index) const
{
    return m_group->button(index);
}

namespace {
constexpr int kTrackWidth = 36;
constexpr int kTrackHeight = 20;
} // namespace

SettingsSwitch::SettingsSwitch(const QString &text, QWidget *parent) : QAbstractButton(parent)
{
    setText(text);
    setCheckable(true);
    setCursor(Qt::PointingHandCursor);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

QSize SettingsSwitch::sizeHint() const
{
    const int textWidth = fontMetrics().horizontalAdvance(text());
    return {textWidth + 16 + kTrackWidth, std::max(kTrackHeight + 4, fontMetrics().height() + 4)};
}

bool SettingsSwitch::hitButton(const QPoint &pos) const
{
    return rect().contains(pos);
}

void SettingsSwitch::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRect track(
        width() - kTrackWidth - 2, (height() - kTrackHeight) / 2, kTrackWidth, kTrackHeight);
    painter.setPen(palette().color(QPalette::WindowText));
    painter.drawText(
        rect().adjusted(0, 0, -(kTrackWidth + 12), 0), Qt::AlignVCenter | Qt::AlignLeft, text());
    painter.setPen(Qt::NoPen);
    painter.setBrush(isChecked() ? SymbolIcon::accentColor() : QColor(0xc7, 0xc7, 0xcc));
    painter.drawRoundedRect(track, kTrackHeight / 2.0, kTrackHeight / 2.0);
    const int knob = kTrackHeight - 4;
    const int knobX = isChecked() ? track.right() - knob - 1 : track.left() + 2;
    painter.setBrush(Qt::white);
    painter.drawEllipse(QRect(knobX, track.top() + 2, knob, knob));
    if (hasFocus()) {
        painter.setBrush(Qt::NoBrush);
        painter.setPen(QPen(SymbolIcon::accentColor(), 1, Qt::DotLine));
        painter.drawRoundedRect(
            track.adjusted(-2, -2, 2, 2), kTrackHeight / 2.0 + 2, kTrackHeight / 2.0 + 2);
    }
}

SettingsStatRow::SettingsStatRow(const QString &label, const QString &value, QWidget *parent)
    : QWidget(parent), m_label(new QLabel(label, this)), m_value(new QLabel(value, this))
{
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 2, 0, 2);
    layout->addWidget(m_label);
    layout->addStretch();
    m_value->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    m_value->setTextInteractionFlags(Qt::TextSelectableByMouse);
    QFont font = m_value->font();
    font.setBold(true);
    m_value->setFont(font);
    layout->addWidget(m_value);
}

QString SettingsStatRow::label() const
{
    return m_label->text();
}

QString SettingsStatRow::value() const
{
    return m_value->text();
}

void SettingsStatRow::setValue(const QString &value)
{
    m_value->setText(value);
}

SettingsStatCard::SettingsStatCard(QWidget *parent)
    : QFrame(parent), m_layout(new QVBoxLayout(this))
{
    WindowStyle::markAsCard(this);
    m_layout->setContentsMargins(14, 8, 14, 8);
    m_layout->setSpacing(2);
}

void SettingsStatCard::setRows(const QList<std::pair<QString, QString>> &rows)
{
    bool sameLabels = rows.size() == m_rows.size();
    for (qsizetype i = 0; sameLabels && i < rows.size(); ++i) {
        sameLabels = m_rows[i]->label() == rows[i].first;
    }
    if (sameLabels) {
        for (qsizetype i = 0; i < rows.size(); ++i) {
            m_rows[i]->setValue(rows[i].second);
        }
        return;
    }
    for (SettingsStatRow *row : m_rows) {
        delete row;
    }
    m_rows.clear();
    for (const auto &[label, value] : rows) {
        auto *row = new SettingsStatRow(label, value, this);
        m_layout->addWidget(row);
        m_rows.append(row);
    }
}

SettingsPermissionRow::SettingsPermissionRow(const QString &title, QWidget *parent)
    : QFrame(parent),
      m_icon(new QLabel(this)),
      m_status(new QLabel(this)),
      m_open(new QPushButton(this))
{
    WindowStyle::markAsCard(this);
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(12, 8, 12, 8);
    layout->addWidget(m_icon);
    auto *texts = new QVBoxLayout;
    texts->setSpacing(0);
    auto *name = new QLabel(title, this);
    QFont font = name->font();
    font.setBold(true);
    name->setFont(font);
    texts->addWidget(name);
    WindowStyle::makeSecondary(m_status);
    texts->addWidget(m_status);
    layout->addLayout(texts, 1);
    layout->addWidget(m_open);
    connect(m_open, &QPushButton::clicked, this, &SettingsPermissionRow::openRequested);
    setGranted(false);
}

void SettingsPermissionRow::setGranted(bool granted)
{
    m_granted = granted;
    m_icon->setPixmap(granted ? SymbolIcon::pixmap(
                          QStringLiteral("checkmark.circle.fill"), 22, SymbolIcon::successColor())
                              : SymbolIcon::pixmap(QStringLiteral("exclamationmark.triangle.fill"),
                                  22, SymbolIcon::warningColor()));
    m_status->setText(statusText());
    m_open->setText(granted ? QStringLiteral("Details…") : QStringLiteral("How to Grant…"));
}

QString SettingsPermissionRow::statusText() const
{
    return m_granted ? QStringLiteral("Granted") : QStringLiteral("Not granted");
}

} // namespace sayvo
