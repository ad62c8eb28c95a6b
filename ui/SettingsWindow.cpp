#include "ui/SettingsWindow.h"

#include "runtime/FootprintSampler.h"
#include "session/SayvoCoordinator.h"
#include "store/SettingsStore.h"
#include "store/Subscribe.h"
#include "store/UsagePresentation.h"
#include "store/UsageStatsStore.h"
#include "ui/DesktopCapabilityList.h"
#include "ui/DictionaryChipEditor.h"
#include "ui/PlatformTexts.h"
#include "ui/SettingsControls.h"
#include "ui/SymbolIcon.h"
#include "ui/WindowStyle.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QScrollArea>
#include <QShowEvent>
#include <QSignalBlocker>
#include <QStackedWidget>
#include <QVBoxLayout>

#include <unistd.h>

namespace sayvo {

namespace {

constexpr std::array kTabs {SettingsTab::general, SettingsTab::trigger, SettingsTab::insertion,
    SettingsTab::dictionary, SettingsTab::usage, SettingsTab::privacy, SettingsTab::permissions};

constexpr int kAutomaticIndex = 0;

QString text(const std::string &s)
{
    return QString::fromStdString(s);
}

// A tab's content: a heading, then the groups, in a scrolling column.
struct Page
{
    QScrollArea *scroll;
    QWidget *content;
    QVBoxLayout *layout;
};

Page makePage(const QString &heading, QWidget *parent)
{
    auto *scroll = new QScrollArea(parent);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    auto *content = new QWidget(scroll);
    auto *layout = new QVBoxLayout(content);
    layout->setContentsMargins(24, 20, 24, 20);
    layout->setSpacing(18);
    auto *title = new QLabel(heading, content);
    QFont font = title->font();
    font.setPointSizeF(font.pointSizeF() * 1.45);
    font.setBold(true);
    title->setFont(font);
    layout->addWidget(title);
    scroll->setWidget(content);
    return {scroll, content, layout};
}

std::vector<SettingsOption> hotkeyOptions()
{
    std::vector<SettingsOption> options;
    options.reserve(kAllHotkeyTriggers.size());
    for (const HotkeyTrigger trigger : kAllHotkeyTriggers) {
        options.push_back({displayName(trigger), {}});
    }
    return options;
}

std::vector<SettingsOption> modeOptions()
{
    std::vector<SettingsOption> options;
    options.reserve(kAllTriggerModes.size());
    for (const TriggerMode mode : kAllTriggerModes) {
        options.push_back({displayName(mode), {}});
    }
    return options;
}

QString insertionDescription(InsertionMethod method)
{
    switch (method) {
    case InsertionMethod::paste:
        return PlatformTexts::pasteDescription();
    case InsertionMethod::axDirect:
        return QStringLiteral(
            "Inserts text directly via the Accessibility API, leaving your clipboard untouched. "
            "Falls back to paste if the target app doesn't support it.");
    }
    return {};
}

std::vector<SettingsOption> insertionOptions()
{
    std::vector<SettingsOption> options;
    options.reserve(kAllInsertionMethods.size());
    for (const InsertionMethod method : kAllInsertionMethods) {
        options.push_back({displayName(method), insertionDescription(method)});
    }
    return options;
}

template <typename Enum, std::size_t N> int indexOf(const std::array<Enum, N> &all, Enum value)
{
    for (std::size_t i = 0; i < N; ++i) {
        if (all[i] == value) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

const QString kRateNote = QStringLiteral(
    "The rate shown is each mic's capture quality. Sayvo always transcribes at 16 kHz, so a "
    "higher number isn't needed \u2014 but on Bluetooth, 16 kHz means the earbuds are in "
    "low-quality call mode.");

} // namespace

SettingsWindow::SettingsWindow(SettingsStore &settings, UsageStatsStore &usageStats,
    SayvoCoordinator &coordinator, PermissionsProvider permissions,
    PermissionHelpOpener openPermissionHelp, std::unique_ptr<LoginItem> loginItem,
    SamplerFactory makeSampler, QWidget *parent)
    : QWidget(parent, Qt::Window),
      m_settings(settings),
      m_usageStats(usageStats),
      m_coordinator(coordinator),
      m_permissions(std::move(permissions)),
      m_openPermissionHelp(std::move(openPermissionHelp)),
      m_loginItem(std::move(loginItem)),
      m_makeSampler(std::move(makeSampler))
{
    setWindowTitle(QStringLiteral("Settings"));
    setWindowFlag(Qt::WindowMaximizeButtonHint, false);
    setAttribute(Qt::WA_DeleteOnClose, false);
    setStyleSheet(WindowStyle::sheet());

    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);

    m_sidebar = new QListWidget(this);
    m_sidebar->setObjectName(QStringLiteral("settingsSidebar"));
    m_sidebar->setFixedWidth(180);
    m_sidebar->setIconSize(QSize(18, 18));
    m_sidebar->setFrameShape(QFrame::NoFrame);
    m_sidebar->setStyleSheet(
        QStringLiteral("#settingsSidebar { background: palette(window); padding: 10px 8px;"
                       " border-right: 1px solid palette(mid); outline: 0; }"
                       "#settingsSidebar::item { padding: 6px 8px; border-radius: 6px; }"
                       "#settingsSidebar::item:selected { background: #2f6fde; color: white; }"));
    for (const SettingsTab tab : kTabs) {
        QIcon icon = SymbolIcon::windowIcon(symbol(tab));
        for (const int size : {16, 24, 32}) {
            icon.addPixmap(SymbolIcon::pixmap(symbol(tab), size, Qt::white), QIcon::Selected);
        }
        auto *item = new QListWidgetItem(icon, title(tab), m_sidebar);
        item->setSizeHint(QSize(160, 34));
    }
    layout->addWidget(m_sidebar);

    m_pages = new QStackedWidget(this);
    m_pages->addWidget(buildGeneral());
    m_pages->addWidget(buildTrigger());
    m_pages->addWidget(buildInsertion());
    m_pages->addWidget(buildDictionary());
    m_pages->addWidget(buildUsage());
    m_pages->addWidget(buildPrivacy());
    m_pages->addWidget(buildPermissions());
    m_content = new QVBoxLayout;
    m_content->setContentsMargins(0, 0, 0, 0);
    m_content->setSpacing(0);
    m_content->addWidget(m_pages, 1);
    layout->addLayout(m_content, 1);

    connect(m_sidebar, &QListWidget::currentRowChanged, m_pages, &QStackedWidget::setCurrentIndex);
    selectTab(SettingsTab::general);
    setFixedSize(780, 580);
    WindowStyle::installDialogKeys(this);
}

SettingsWindow::~SettingsWindow() = default;

void SettingsWindow::setNotice(QWidget *notice)
{
    m_content->insertWidget(0, notice);
}

SettingsWindow::SamplerFactory SettingsWindow::defaultSamplerFactory()
{
    return [] { return std::make_unique<FootprintSampler>(getpid(), 3.0); };
}

QString SettingsWindow::title(SettingsTab tab)
{
    switch (tab) {
    case SettingsTab::general:
        return QStringLiteral("General");
    case SettingsTab::trigger:
        return QStringLiteral("Trigger");
    case SettingsTab::insertion:
        return QStringLiteral("Insertion");
    case SettingsTab::dictionary:
        return QStringLiteral("Dictionary");
    case SettingsTab::usage:
        return QStringLiteral("Usage");
    case SettingsTab::privacy:
        return QStringLiteral("Privacy");
    case SettingsTab::permissions:
        return QStringLiteral("Permissions");
    }
    return {};
}

QString SettingsWindow::symbol(SettingsTab tab)
{
    switch (tab) {
    case SettingsTab::general:
        return QStringLiteral("gearshape");
    case SettingsTab::trigger:
        return QStringLiteral("keyboard");
    case SettingsTab::insertion:
        return QStringLiteral("text.cursor");
    case SettingsTab::dictionary:
        return QStringLiteral("book");
    case SettingsTab::usage:
        return QStringLiteral("waveform");
    case SettingsTab::privacy:
        return QStringLiteral("hand.raised");
    case SettingsTab::permissions:
        return QStringLiteral("lock.shield");
    }
    return {};
}

QString SettingsWindow::formatResidentMemory(std::uint64_t bytes)
{
    const double gibibytes = static_cast<double>(bytes) / 1073741824.0;
    if (gibibytes < 0.1) {
        return QString::asprintf("%.0f MB", static_cast<double>(bytes) / 1048576.0);
    }
    return QString::asprintf("%.2f GB", gibibytes);
}

QString SettingsWindow::formatCpuPercent(double percent)
{
    return QString::asprintf("%.1f%%", percent);
}

QString SettingsWindow::formatGpuPercent(std::optional<double> percent)
{
    return percent ? QString::asprintf("%.0f%%", *percent) : QStringLiteral("\u2014");
}

QString SettingsWindow::microphoneCaption(
    const std::optional<QString> &deviceName, bool isBluetooth)
{
    if (!deviceName) {
        return QStringLiteral(
                   "Choose which microphone dictation listens to. Using your built-in microphone "
                   "lets Bluetooth earbuds keep playing audio in full quality while you dictate. ")
            + kRateNote;
    }
    QString caption = QStringLiteral("Sayvo will use ") + *deviceName
        + QStringLiteral(" at its best available quality. ");
    if (isBluetooth) {
        caption += QStringLiteral(
            "Tip: choosing your built-in microphone instead lets your earbuds keep playing music "
            "or a call in full quality while you dictate. ");
    }
    return caption + kRateNote;
}

QString SettingsWindow::deviceLabel(const QString &name, double sampleRate)
{
    return name + QStringLiteral(" \u2014 ") + QString::number(sampleRate / 1000.0, 'f', 1)
        + QStringLiteral(" kHz");
}

SettingsTab SettingsWindow::selectedTab() const
{
    const int row = m_sidebar->currentRow();
    return row >= 0 && row < static_cast<int>(kTabs.size()) ? kTabs[static_cast<std::size_t>(row)]
                                                            : SettingsTab::general;
}

void SettingsWindow::selectTab(SettingsTab tab)
{
    m_sidebar->setCurrentRow(indexOf(kTabs, tab));
}

// General -------------------------------------------------------------------------------

QWidget *SettingsWindow::buildGeneral()
{
    Page page = makePage(title(SettingsTab::general), this);

    auto *endpoint = new SettingsFieldGroup(QStringLiteral("Engine endpoint"), page.content);
    m_endpoint = new QLineEdit(page.content);
    m_endpoint->setObjectName(QStringLiteral("endpointField"));
    m_endpoint->setPlaceholderText(QStringLiteral("ws://127.0.0.1:8765"));
    endpoint->addWidget(m_endpoint);
    m_endpointError = new QLabel(SettingsStore::invalidEndpointMessage(), page.content);
    m_endpointError->setObjectName(QStringLiteral("endpointError"));
    QPalette errorPalette = m_endpointError->palette();
    errorPalette.setColor(QPalette::WindowText, SymbolIcon::failureColor());
    m_endpointError->setPalette(errorPalette);
    m_endpointError->hide();
    endpoint->addWidget(m_endpointError);
    page.layout->addWidget(endpoint);
    connect(m_endpoint, &QLineEdit::editingFinished, this, &SettingsWindow::commitEndpoint);
    m_endpoint->setText(m_settings.endpointURL().toString());

    auto *microphone = new SettingsFieldGroup(QStringLiteral("Microphone"), page.content);
    m_microphone = new QComboBox(page.content);
    m_microphone->setObjectName(QStringLiteral("microphoneChoice"));
    m_microphone->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    microphone->addWidget(m_microphone);
    m_microphoneCaption = microphone->addCaption({});
    m_microphoneCaption->setObjectName(QStringLiteral("microphoneCaption"));
    page.layout->addWidget(microphone);
    connect(m_microphone, &QComboBox::activated, this, &SettingsWindow::chooseDevice);
    connect(&m_coordinator, &SayvoCoordinator::inputDevicesChanged, this,
        &SettingsWindow::refreshDevices);
    connect(
        &m_settings, &SettingsStore::inputDeviceUIDChanged, this, &SettingsWindow::refreshDevices);
    refreshDevices();

    auto *language = new SettingsFieldGroup(QStringLiteral("Language"), page.content);
    m_language = new QComboBox(page.content);
    m_language->setObjectName(QStringLiteral("languageChoice"));
    for (const LanguageChoice &choice : languageChoices()) {
        m_language->addItem(choice.label);
    }
    language->addWidget(m_language);
    if (const std::optional<QString> note = languageNote()) {
        language->addCaption(*note)->setObjectName(QStringLiteral("languageNote"));
    }
    page.layout->addWidget(language);
    connect(m_language, &QComboBox::activated, this, [this](int index) {
        const auto &choices = languageChoices();
        if (index >= 0 && index < static_cast<int>(choices.size())) {
            m_settings.setLanguage(choices[static_cast<std::size_t>(index)].value);
        }
    });
    connect(&m_settings, &SettingsStore::languageChanged, this, &SettingsWindow::refreshLanguage);
    refreshLanguage();

    m_launchAtLogin = new SettingsSwitch(QStringLiteral("Launch at login"), page.content);
    m_launchAtLogin->setObjectName(QStringLiteral("launchAtLoginSwitch"));
    page.layout->addWidget(m_launchAtLogin);
    connect(m_launchAtLogin, &SettingsSwitch::clicked, this, &SettingsWindow::applyLaunchAtLogin);
    subscribe(&m_settings, &SettingsStore::launchAtLogin, &SettingsStore::launchAtLoginChanged,
        this, [this](bool enabled) { m_launchAtLogin->setChecked(enabled); });
    m_loginApproval = new QWidget(page.content);
    m_loginApproval->setObjectName(QStringLiteral("loginApproval"));
    auto *approvalLayout = new QVBoxLayout(m_loginApproval);
    approvalLayout->setContentsMargins(0, 0, 0, 0);
    auto *approvalNote = new QLabel(PlatformTexts::loginApprovalNote(), m_loginApproval);
    approvalNote->setWordWrap(true);
    approvalLayout->addWidget(approvalNote);
    auto *openApproval = new QPushButton(PlatformTexts::loginApprovalButton(), m_loginApproval);
    openApproval->setObjectName(QStringLiteral("openLoginApproval"));
    approvalLayout->addWidget(openApproval, 0, Qt::AlignLeft);
    connect(openApproval, &QPushButton::clicked, this, [this] {
        if (m_loginItem) {
            m_loginItem->openApproval();
        }
    });
    m_loginApproval->hide();
    page.layout->addWidget(m_loginApproval);

    page.layout->addStretch();
    return page.scroll;
}

void SettingsWindow::commitEndpoint()
{
    const QString typed = m_endpoint->text();
    if (!SettingsStore::isValidEndpoint(typed)) {
        showEndpointError(true);
        return;
    }
    showEndpointError(false);
    if (QUrl(typed) != m_settings.endpointURL()) {
        m_settings.setEndpointURL(QUrl(typed));
    }
}

void SettingsWindow::showEndpointError(bool shown)
{
    m_endpointError->setVisible(shown);
    m_endpoint->setStyleSheet(shown
            ? QStringLiteral("QLineEdit { border: 2px solid #d63b30; border-radius: "
                             "4px; padding: 2px 4px; }")
            : QString());
    m_endpoint->setProperty("invalid", shown);
}

void SettingsWindow::refreshDevices()
{
    const AudioInputDeviceList &devices = m_coordinator.inputDevices();
    const std::optional<QString> chosen = m_settings.inputDeviceUID();
    const QSignalBlocker blocker(m_microphone);
    m_microphone->clear();
    m_microphone->addItem(QStringLiteral("Automatic"));
    int selected = kAutomaticIndex;
    std::optional<QString> chosenName;
    bool chosenBluetooth = false;
    for (const AudioInputDevice &device : devices) {
        m_microphone->addItem(deviceLabel(device.name, device.sampleRate), device.uid);
        if (chosen && device.uid == *chosen) {
            selected = m_microphone->count() - 1;
            chosenName = device.name;
            chosenBluetooth = device.isBluetooth;
        }
    }
    if (chosen && !chosenName) {
        // A remembered microphone that is unplugged stays chosen; capture falls back meanwhile.
        chosenName = QStringLiteral("your chosen microphone");
        m_microphone->addItem(QStringLiteral("Unavailable microphone"), *chosen);
        selected = m_microphone->count() - 1;
    }
    m_microphone->setCurrentIndex(selected);
    m_microphoneCaption->setText(microphoneCaption(chosenName, chosenBluetooth));
}

void SettingsWindow::chooseDevice(int index)
{
    if (index == kAutomaticIndex) {
        m_settings.setInputDeviceUID(std::nullopt);
        return;
    }
    const QString uid = m_microphone->itemData(index).toString();
    if (!uid.isEmpty()) {
        m_settings.setInputDeviceUID(uid);
    }
}

void SettingsWindow::refreshLanguage()
{
    const auto &choices = languageChoices();
    const QSignalBlocker blocker(m_language);
    // A language stored earlier that this engine does not offer is shown as it is, never as
    // another choice.
    while (m_language->count() > static_cast<int>(choices.size())) {
        m_language->removeItem(m_language->count() - 1);
    }
    for (std::size_t i = 0; i < choices.size(); ++i) {
        if (choices[i].value == m_settings.language()) {
            m_language->setCurrentIndex(static_cast<int>(i));
            return;
        }
    }
    m_language->addItem(QStringLiteral("%1 (not offered by this engine)")
                            .arg(m_settings.language().value_or(QString())));
    m_language->setCurrentIndex(m_language->count() - 1);
}

void SettingsWindow::applyLaunchAtLogin(bool enabled)
{
    if (m_loginItem && !m_loginItem->setEnabled(enabled)) {
        m_launchAtLogin->setChecked(m_settings.launchAtLogin());
        return;
    }
    m_settings.setLaunchAtLogin(enabled);
    refreshLaunchAtLogin();
}

void SettingsWindow::refreshLaunchAtLogin()
{
    if (!m_loginItem) {
        return;
    }
    // A launch that waits for the user's approval was still asked for: the switch stays on
    // and the note says what is missing.
    const LoginLaunch state = m_loginItem->state();
    const bool asked = state != LoginLaunch::off;
    if (asked != m_settings.launchAtLogin()) {
        m_settings.setLaunchAtLogin(asked);
    }
    m_loginApproval->setVisible(state == LoginLaunch::awaitingApproval);
}

// Trigger and insertion -----------------------------------------------------------------

QWidget *SettingsWindow::buildTrigger()
{
    Page page = makePage(title(SettingsTab::trigger), this);
    auto *hotkey = new SettingsFieldGroup(QStringLiteral("Hotkey"), page.content);
    m_hotkey = new SettingsRadioList(hotkeyOptions(), page.content);
    m_hotkey->setObjectName(QStringLiteral("hotkeyChoice"));
    hotkey->addWidget(m_hotkey);
    m_rightAltNote = hotkey->addCaption(QString());
    m_rightAltNote->setObjectName(QStringLiteral("rightAltNote"));
    page.layout->addWidget(hotkey);
    connect(m_hotkey, &SettingsRadioList::selected, this, [this](int index) {
        m_settings.setHotkeyTrigger(kAllHotkeyTriggers[static_cast<std::size_t>(index)]);
    });
    // The key is watched from start-up on; a new choice waits for the next start, and says so.
    m_triggerNote = hotkey->addCaption({});
    m_triggerNote->setObjectName(QStringLiteral("triggerRestartNote"));
    subscribe(&m_settings, &SettingsStore::hotkeyTrigger, &SettingsStore::hotkeyTriggerChanged,
        this, [this](HotkeyTrigger trigger) {
            m_hotkey->setSelectedIndex(indexOf(kAllHotkeyTriggers, trigger));
            const HotkeyTrigger active = m_coordinator.activeTrigger();
            m_triggerNote->setText(
                QStringLiteral("Takes effect the next time Sayvo starts. Until then the trigger "
                               "stays %1.")
                    .arg(displayName(active)));
            m_triggerNote->setVisible(trigger != active);
            refreshRightAltNote();
        });

    auto *mode = new SettingsFieldGroup(QStringLiteral("Mode"), page.content);
    m_mode = new SettingsSegmentedControl(modeOptions(), page.content);
    m_mode->setObjectName(QStringLiteral("modeChoice"));
    mode->addWidget(m_mode);
    mode->addCaption(QStringLiteral("Hold to talk: dictation runs while the key is held down. "
                                    "Toggle: press once to start and once more to stop. A new "
                                    "mode applies from the next press."));
    page.layout->addWidget(mode);
    connect(m_mode, &SettingsSegmentedControl::selected, this, [this](int index) {
        m_settings.setTriggerMode(kAllTriggerModes[static_cast<std::size_t>(index)]);
    });
    subscribe(&m_settings, &SettingsStore::triggerMode, &SettingsStore::triggerModeChanged, this,
        [this](TriggerMode m) { m_mode->setSelectedIndex(indexOf(kAllTriggerModes, m)); });

    page.layout->addStretch();
    return page.scroll;
}

void SettingsWindow::refreshRightAltNote()
{
    QString note;
    if (m_settings.hotkeyTrigger() == HotkeyTrigger::rightOption) {
        switch (m_coordinator.rightAltRole()) {
        case RightAltRole::alt:
            break;
        case RightAltRole::altGr:
            note = QStringLiteral("On your keyboard layout Right Alt is AltGr: every character "
                                  "typed with AltGr also starts dictation. If you type with "
                                  "AltGr, choose another key.");
            break;
        case RightAltRole::compose:
            note = QStringLiteral("On your keyboard layout Right Alt is the Compose key: "
                                  "composing a character also starts dictation. If you use "
                                  "Compose, choose another key.");
            break;
        }
    }
    m_rightAltNote->setText(note);
    m_rightAltNote->setVisible(!note.isEmpty());
}

QWidget *SettingsWindow::buildInsertion()
{
    Page page = makePage(title(SettingsTab::insertion), this);
    auto *method = new SettingsFieldGroup(QStringLiteral("Method"), page.content);
    m_insertion = new SettingsRadioList(insertionOptions(), page.content);
    m_insertion->setObjectName(QStringLiteral("insertionChoice"));
    method->addWidget(m_insertion);
    page.layout->addWidget(method);
    connect(m_insertion, &SettingsRadioList::selected, this, [this](int index) {
        m_settings.setInsertionMethod(kAllInsertionMethods[static_cast<std::size_t>(index)]);
    });
    subscribe(&m_settings, &SettingsStore::insertionMethod, &SettingsStore::insertionMethodChanged,
        this, [this](InsertionMethod m) {
            m_insertion->setSelectedIndex(indexOf(kAllInsertionMethods, m));
        });
    page.layout->addStretch();
    return page.scroll;
}

// Dictionary ----------------------------------------------------------------------------

QWidget *SettingsWindow::buildDictionary()
{
    Page page = makePage(title(SettingsTab::dictionary), this);

    auto *personal = new SettingsFieldGroup(QStringLiteral("Personal Dictionary"), page.content);
    personal->addCaption(QStringLiteral("Words and names the engine should recognize verbatim."));
    m_dictionary = new DictionaryChipEditor(page.content);
    m_dictionary->setObjectName(QStringLiteral("dictionaryEditor"));
    personal->addWidget(m_dictionary);
    page.layout->addWidget(personal);
    connect(m_dictionary, &DictionaryChipEditor::addRequested, this,
        [this](const QString &typed) { m_settings.addDictionaryEntry(typed); });
    connect(m_dictionary, &DictionaryChipEditor::removeRequested, this,
        [this](const QString &term) { m_settings.removeDictionaryEntry(term); });
    subscribe(&m_settings, &SettingsStore::personalDictionary,
        &SettingsStore::personalDictionaryChanged, this,
        [this](const QStringList &terms) { m_dictionary->setTerms(terms); });

    auto *suggested
        = new SettingsFieldGroup(QStringLiteral("Suggested from your corrections"), page.content);
    auto *rows = new QWidget(page.content);
    m_suggestionRows = new QVBoxLayout(rows);
    m_suggestionRows->setContentsMargins(0, 0, 0, 0);
    m_suggestionRows->setSpacing(6);
    suggested->addWidget(rows);
    m_noSuggestions = WindowStyle::secondaryLabel(
        QStringLiteral("No suggestions yet. When the same word is corrected the same way "
                       "repeatedly, it appears here for you to accept. Nothing is added to your "
                       "dictionary automatically."),
        page.content);
    m_noSuggestions->setObjectName(QStringLiteral("noSuggestions"));
    suggested->addWidget(m_noSuggestions);
    m_checkSuggestions = new QPushButton(QStringLiteral("Check for suggestions"), page.content);
    m_checkSuggestions->setObjectName(QStringLiteral("checkSuggestions"));
    auto *buttonRow = new QHBoxLayout;
    buttonRow->addWidget(m_checkSuggestions);
    buttonRow->addStretch();
    auto *buttonHolder = new QWidget(page.content);
    buttonHolder->setLayout(buttonRow);
    buttonRow->setContentsMargins(0, 0, 0, 0);
    suggested->addWidget(buttonHolder);
    page.layout->addWidget(suggested);
    connect(m_checkSuggestions, &QPushButton::clicked, &m_coordinator,
        &SayvoCoordinator::refreshSuggestions);

    auto *patterns
        = new SettingsFieldGroup(QStringLiteral("Formatting patterns noticed"), page.content);
    auto *exemplarRows = new QWidget(page.content);
    m_exemplarRows = new QVBoxLayout(exemplarRows);
    m_exemplarRows->setContentsMargins(0, 0, 0, 0);
    m_exemplarRows->setSpacing(6);
    patterns->addWidget(exemplarRows);
    m_exemplarNote = WindowStyle::secondaryLabel(
        QStringLiteral("Not applied automatically \u2014 each domain's formatting rules are shared "
                       "with everyone using that profile, so a change is reviewed and tested "
                       "first rather than made silently from one person's corrections."),
        page.content);
    patterns->addWidget(m_exemplarNote);
    m_noExemplars = WindowStyle::secondaryLabel(
        QStringLiteral("No repeated formatting misses found yet."), page.content);
    m_noExemplars->setObjectName(QStringLiteral("noExemplars"));
    patterns->addWidget(m_noExemplars);
    page.layout->addWidget(patterns);

    connect(&m_coordinator, &SayvoCoordinator::suggestionsChanged, this,
        &SettingsWindow::refreshSuggestions);
    refreshSuggestions();
    page.layout->addStretch();
    return page.scroll;
}

void SettingsWindow::refreshSuggestions()
{
    WindowStyle::clearLayout(m_suggestionRows);
    WindowStyle::clearLayout(m_exemplarRows);
    const std::optional<SuggestionsMessage> &suggestions = m_coordinator.suggestions();
    const std::vector<DictionarySuggestion> dictionary
        = suggestions ? suggestions->dictionary : std::vector<DictionarySuggestion> {};
    const std::vector<ExemplarSuggestion> exemplars
        = suggestions ? suggestions->exemplars : std::vector<ExemplarSuggestion> {};

    for (const DictionarySuggestion &s : dictionary) {
        auto *row = new QFrame;
        row->setObjectName(QStringLiteral("suggestionRow"));
        WindowStyle::markAsCard(row);
        auto *layout = new QHBoxLayout(row);
        layout->setContentsMargins(12, 6, 8, 6);
        auto *from = new QLabel(text(s.misrecognized), row);
        from->setTextFormat(Qt::PlainText);
        layout->addWidget(from);
        auto *arrow = new QLabel(row);
        arrow->setPixmap(
            SymbolIcon::pixmap(QStringLiteral("arrow.right"), 14, SymbolIcon::secondaryColor()));
        layout->addWidget(arrow);
        auto *to = new QLabel(text(s.suggestedTerm), row);
        to->setTextFormat(Qt::PlainText);
        QFont bold = to->font();
        bold.setBold(true);
        to->setFont(bold);
        layout->addWidget(to);
        auto *count = WindowStyle::secondaryLabel(
            QString::asprintf("%lld", static_cast<long long>(s.occurrences)), row);
        count->setToolTip(QStringLiteral("Times corrected this way"));
        count->setObjectName(QStringLiteral("occurrences"));
        layout->addWidget(count);
        layout->addStretch();
        auto *accept = new QPushButton(QStringLiteral("Add to Dictionary"), row);
        accept->setObjectName(QStringLiteral("acceptSuggestion"));
        auto *dismiss = new QPushButton(QStringLiteral("Dismiss"), row);
        dismiss->setObjectName(QStringLiteral("dismissSuggestion"));
        layout->addWidget(accept);
        layout->addWidget(dismiss);
        connect(accept, &QPushButton::clicked, this,
            [this, s] { m_coordinator.acceptDictionarySuggestion(s); });
        connect(dismiss, &QPushButton::clicked, this,
            [this, s] { m_coordinator.dismissDictionarySuggestion(s); });
        m_suggestionRows->addWidget(row);
        row->show();
    }
    m_noSuggestions->setVisible(dictionary.empty());

    for (const ExemplarSuggestion &e : exemplars) {
        auto *row = new QFrame;
        row->setObjectName(QStringLiteral("exemplarRow"));
        WindowStyle::markAsCard(row);
        auto *layout = new QHBoxLayout(row);
        layout->setContentsMargins(12, 6, 12, 6);
        auto *domain = WindowStyle::secondaryLabel(text(e.domain), row);
        layout->addWidget(domain);
        auto *spoken = new QLabel(text(e.spoken), row);
        spoken->setTextFormat(Qt::PlainText);
        layout->addWidget(spoken);
        auto *arrow = new QLabel(row);
        arrow->setPixmap(
            SymbolIcon::pixmap(QStringLiteral("arrow.right"), 14, SymbolIcon::secondaryColor()));
        layout->addWidget(arrow);
        auto *written = new QLabel(text(e.written), row);
        written->setTextFormat(Qt::PlainText);
        layout->addWidget(written);
        layout->addStretch();
        layout->addWidget(WindowStyle::secondaryLabel(
            QString::asprintf("%lld", static_cast<long long>(e.occurrences)), row));
        m_exemplarRows->addWidget(row);
        row->show();
    }
    m_noExemplars->setVisible(exemplars.empty());
    m_exemplarNote->setVisible(!exemplars.empty());
}

// Usage ---------------------------------------------------------------------------------

QWidget *SettingsWindow::buildUsage()
{
    Page page = makePage(title(SettingsTab::usage), this);

    m_usageEmpty = WindowStyle::secondaryLabel(UsagePresentation::emptyStateText(), page.content);
    m_usageEmpty->setObjectName(QStringLiteral("usageEmpty"));
    page.layout->addWidget(m_usageEmpty);
    auto *statistics = new SettingsFieldGroup(QStringLiteral("Dictation"), page.content);
    m_usageStatistics = statistics;
    m_usageCard = new SettingsStatCard(page.content);
    m_usageCard->setObjectName(QStringLiteral("usageCard"));
    statistics->addWidget(m_usageCard);
    m_usageNote = WindowStyle::secondaryLabel(PlatformTexts::usageNote(), page.content);
    m_usageNote->setObjectName(QStringLiteral("usageNote"));
    statistics->addWidget(m_usageNote);
    page.layout->addWidget(statistics);

    auto *engine = new SettingsFieldGroup(QStringLiteral("Engine footprint"), page.content);
    m_footprintCard = new SettingsStatCard(page.content);
    m_footprintCard->setObjectName(QStringLiteral("footprintCard"));
    engine->addWidget(m_footprintCard);
    engine->addCaption(PlatformTexts::footprintNote())
        ->setObjectName(QStringLiteral("footprintNote"));
    page.layout->addWidget(engine);
    refreshFootprint(std::nullopt);

    m_resetStatistics = new QPushButton(QStringLiteral("Reset Statistics"), page.content);
    m_resetStatistics->setObjectName(QStringLiteral("resetStatistics"));
    auto *row = new QHBoxLayout;
    row->addWidget(m_resetStatistics);
    row->addStretch();
    page.layout->addLayout(row);
    connect(m_resetStatistics, &QPushButton::clicked, &m_usageStats, &UsageStatsStore::reset);
    connect(&m_usageStats, &UsageStatsStore::changed, this, &SettingsWindow::refreshUsage);
    refreshUsage();

    page.layout->addStretch();
    return page.scroll;
}

void SettingsWindow::refreshUsage()
{
    const UsagePresentation presentation = UsagePresentation::of(m_usageStats.totals());
    m_usageEmpty->setVisible(presentation.showsEmptyState);
    m_usageStatistics->setVisible(!presentation.showsEmptyState);
    m_usageNote->setVisible(!presentation.showsEmptyState);
    m_resetStatistics->setVisible(!presentation.showsEmptyState);
    QList<std::pair<QString, QString>> rows;
    for (const UsageRow &row : presentation.rows) {
        rows.append({row.label, row.value});
    }
    m_usageCard->setRows(rows);
}

void SettingsWindow::refreshFootprint(const std::optional<EngineFootprint> &footprint)
{
    if (footprint) {
        m_lastFootprint = footprint;
    }
    const QString none = QStringLiteral("\u2014");
    m_footprintCard->setRows({
        {QStringLiteral("Resident memory"),
            m_lastFootprint ? formatResidentMemory(m_lastFootprint->residentBytes) : none},
        {QStringLiteral("CPU"),
            m_lastFootprint ? formatCpuPercent(m_lastFootprint->cpuPercent) : none},
        {QStringLiteral("GPU (system)"),
            m_lastFootprint ? formatGpuPercent(m_lastFootprint->gpuPercent) : none},
        {QStringLiteral("Processes"),
            m_lastFootprint ? QString::number(m_lastFootprint->processCount) : none},
    });
}

// Privacy and permissions ---------------------------------------------------------------

QWidget *SettingsWindow::buildPrivacy()
{
    Page page = makePage(title(SettingsTab::privacy), this);
    m_feedback = new SettingsSwitch(
        QStringLiteral("Share post-edit corrections (opt-in, A5)"), page.content);
    m_feedback->setObjectName(QStringLiteral("feedbackSwitch"));
    page.layout->addWidget(m_feedback);
    auto *caption = WindowStyle::secondaryLabel(PlatformTexts::privacyCaption(), page.content);
    caption->setObjectName(QStringLiteral("privacyCaption"));
    page.layout->addWidget(caption);
    connect(m_feedback, &SettingsSwitch::clicked, &m_settings, &SettingsStore::setFeedbackEnabled);
    subscribe(&m_settings, &SettingsStore::feedbackEnabled, &SettingsStore::feedbackEnabledChanged,
        this, [this](bool enabled) { m_feedback->setChecked(enabled); });
    page.layout->addStretch();
    return page.scroll;
}

QWidget *SettingsWindow::buildPermissions()
{
    Page page = makePage(title(SettingsTab::permissions), this);
    page.layout->addWidget(WindowStyle::secondaryLabel(
        QStringLiteral("Sayvo needs to hear the microphone, read and type into the focused text "
                       "field, and watch the trigger key. The state below is checked each time "
                       "this window opens."),
        page.content));
    const auto addRow = [&](Permission permission, const QString &name, const QString &objectName) {
        auto *row = new SettingsPermissionRow(name, page.content);
        row->setObjectName(objectName);
        page.layout->addWidget(row);
        connect(row, &SettingsPermissionRow::openRequested, this, [this, permission] {
            if (m_openPermissionHelp) {
                m_openPermissionHelp(permission);
            }
        });
        return row;
    };
    m_microphonePermission
        = addRow(Permission::microphone, QStringLiteral("Microphone"), "microphonePermission");
    m_accessibilityPermission = addRow(
        Permission::accessibility, QStringLiteral("Accessibility"), "accessibilityPermission");
    m_inputMonitoringPermission = addRow(Permission::inputMonitoring,
        QStringLiteral("Input Monitoring"), "inputMonitoringPermission");
    m_desktopCapabilities = new DesktopCapabilityList(page.content);
    page.layout->addWidget(m_desktopCapabilities);
    page.layout->addStretch();
    return page.scroll;
}

void SettingsWindow::setDesktopCapabilities(const std::vector<DesktopCapabilityStatus> &statuses)
{
    m_desktopCapabilities->setStatuses(statuses);
}

void SettingsWindow::refreshPermissions()
{
    const PermissionSnapshot snapshot = m_permissions ? m_permissions() : PermissionSnapshot {};
    m_microphonePermission->setGranted(snapshot.microphone);
    m_accessibilityPermission->setGranted(snapshot.accessibility);
    m_inputMonitoringPermission->setGranted(snapshot.inputMonitoring);
}

// Visibility ----------------------------------------------------------------------------

void SettingsWindow::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    // A window restored from the dock or taskbar keeps what the user was typing; opening it
    // from the menu starts from the stored values and the current permissions.
    if (!event->spontaneous()) {
        m_endpoint->setText(m_settings.endpointURL().toString());
        showEndpointError(false);
        refreshPermissions();
        // The layout may have changed since the window was last open.
        refreshRightAltNote();
        refreshLaunchAtLogin();
    }
    if (!m_sampler && m_makeSampler) {
        m_sampler = m_makeSampler();
        if (m_sampler) {
            connect(m_sampler.get(), &FootprintSampler::footprintChanged, this,
                &SettingsWindow::refreshFootprint);
            m_sampler->start();
        }
    }
}

void SettingsWindow::hideEvent(QHideEvent *event)
{
    QWidget::hideEvent(event);
    m_sampler.reset();
}

} // namespace sayvo
