#include "ui/DesktopCapabilityList.h"

#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace sayvo {

DesktopCapabilityList::DesktopCapabilityList(QWidget *parent)
    : QWidget(parent), m_layout(new QVBoxLayout(this))
{
    m_layout->setContentsMargins(0, 0, 0, 0);
    setVisible(false);
}

void DesktopCapabilityList::setStatuses(const std::vector<DesktopCapabilityStatus> &statuses)
{
    while (QLayoutItem *item = m_layout->takeAt(0)) {
        delete item->widget();
        delete item;
    }
    m_lines.clear();
    for (const DesktopCapabilityStatus &status : statuses) {
        QString line = displayName(status.capability) + QStringLiteral(": ")
            + (status.isAvailable() ? QString() : QStringLiteral("unavailable. ")) + status.works;
        if (!status.action.isEmpty()) {
            line += QLatin1Char(' ') + status.action;
        }
        m_lines << line;
        auto *label = new QLabel(this);
        label->setObjectName(QStringLiteral("desktopCapability"));
        label->setWordWrap(true);
        label->setTextFormat(Qt::RichText);
        label->setTextInteractionFlags(Qt::TextSelectableByMouse);
        QString rich = QStringLiteral("<b>%1</b> — %2")
                           .arg(displayName(status.capability).toHtmlEscaped(),
                               status.works.toHtmlEscaped());
        if (!status.isAvailable()) {
            rich = QStringLiteral("<b>%1</b> — <i>unavailable.</i> %2")
                       .arg(displayName(status.capability).toHtmlEscaped(),
                           status.works.toHtmlEscaped());
        }
        if (!status.action.isEmpty()) {
            rich += QStringLiteral("<br>") + status.action.toHtmlEscaped();
        }
        label->setText(rich);
        m_layout->addWidget(label);
        if (status.canAskAgain) {
            auto *button = new QPushButton(QStringLiteral("Ask again"), this);
            button->setObjectName(QStringLiteral("askAgain"));
            const DesktopCapability capability = status.capability;
            // Queued: the answer rebuilds the list, this button with it.
            connect(
                button, &QPushButton::clicked, this,
                [this, capability] {
                    if (m_onAskAgain) {
                        m_onAskAgain(capability);
                    }
                },
                Qt::QueuedConnection);
            m_layout->addWidget(button, 0, Qt::AlignLeft);
        }
    }
    setVisible(!statuses.empty());
}

QStringList DesktopCapabilityList::lines() const
{
    return m_lines;
}

} // namespace sayvo
