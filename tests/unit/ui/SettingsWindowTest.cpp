#include "ui/SettingsWindow.h"

#include "runtime/FootprintSampler.h"
#include "support/session/CoordinatorHarness.h"
#include "ui/DictionaryChipEditor.h"
#include "ui/PlatformTexts.h"
#include "ui/SettingsControls.h"
#include "ui/SymbolIcon.h"
#include "ui/linux/LoginItemXdg.h"
#include "unit/ui/WindowShots.h"

#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QStackedWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QToolButton>

#include <gtest/gtest.h>

namespace sayvo {
namespace {

using test::CoordinatorHarness;

class FixedGpu : public GpuStats
{
public:
    std::optional<double> utilisationPercent() override { return 42.4; }
};

// Clicks where the round indicator of a radio button is drawn.
void clickRadio(QAbstractButton *button)
{
    QTest::mouseClick(button, Qt::LeftButton, {}, QPoint(8, button->height() / 2));
}

template <typename T> T *child(QWidget &window, const char *name)
{
    return window.findChild<T *>(QString::fromLatin1(name));
}

// Every label's text in the widget's visible subtree.
QStringList visibleTexts(QWidget *root)
{
    QStringList texts;
    for (QLabel *label : root->findChildren<QLabel *>()) {
        if (label->isVisibleTo(root) && !label->text().isEmpty()) {
            texts.append(label->text());
        }
    }
    return texts;
}

class SettingsWindowTest : public ::testing::Test
{
protected:
    SettingsWindowTest()
    {
        m_previousConfig = qgetenv("XDG_CONFIG_HOME");
        qputenv("XDG_CONFIG_HOME", config.path().toUtf8());
        FakeAudioDevice mic;
        mic.id = 11;
        mic.uid = QStringLiteral("mic-1");
        mic.name = QStringLiteral("Built-in Microphone");
        mic.sampleRate = 48000.0;
        FakeAudioDevice buds;
        buds.id = 12;
        buds.uid = QStringLiteral("buds-1");
        buds.name = QStringLiteral("Earbuds");
        buds.transport = AudioTransportType::bluetooth;
        buds.sampleRate = 16000.0;
        h.hardware.setDevices({mic, buds});
        h.hardware.notifyDeviceListChanged();
        window = makeWindow(makeLoginItem(QStringLiteral("/opt/Sayvo/bin/sayvo")));
    }
    std::unique_ptr<SettingsWindow> makeWindow(std::unique_ptr<LoginItem> loginItem)
    {
        return std::make_unique<SettingsWindow>(
            *h.settings, *h.usage, *h.coordinator, [this] { return permissions; },
            [this](Permission permission) { helpOpened.append(permission); }, std::move(loginItem),
            [this] {
                ++samplersMade;
                return std::make_unique<FootprintSampler>(
                    getpid(), 3.0, std::make_shared<FixedGpu>());
            });
    }
    ~SettingsWindowTest() override { qputenv("XDG_CONFIG_HOME", m_previousConfig); }

    void show()
    {
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
    }
    void open(SettingsTab tab)
    {
        auto *sidebar = child<QListWidget>(*window, "settingsSidebar");
        const int row = static_cast<int>(tab);
        const QRect rect = sidebar->visualItemRect(sidebar->item(row));
        QTest::mouseClick(sidebar->viewport(), Qt::LeftButton, {}, rect.center());
        ASSERT_EQ(window->selectedTab(), tab);
    }
    QWidget *page() { return window->findChild<QStackedWidget *>()->currentWidget(); }
    void commitEndpoint(const QString &text)
    {
        auto *field = child<QLineEdit>(*window, "endpointField");
        field->selectAll();
        QTest::keyClick(field, Qt::Key_Backspace);
        QTest::keyClicks(field, text);
        QTest::keyClick(field, Qt::Key_Return);
    }
    QString autostartEntry() const
    {
        return config.path() + QStringLiteral("/autostart/com.sayvoapp.Sayvo.desktop");
    }

    QTemporaryDir config;
    CoordinatorHarness h;
    PermissionSnapshot permissions {true, false, true};
    QList<Permission> helpOpened;
    int samplersMade = 0;
    std::unique_ptr<SettingsWindow> window;

private:
    QByteArray m_previousConfig;
};

TEST_F(SettingsWindowTest, TheSidebarOffersSevenTabsInOrderAndStartsAtGeneral)
{
    show();
    auto *sidebar = child<QListWidget>(*window, "settingsSidebar");
    ASSERT_EQ(sidebar->count(), 7);
    const QStringList titles {
        "General", "Trigger", "Insertion", "Dictionary", "Usage", "Privacy", "Permissions"};
    const QStringList symbols {
        "gearshape", "keyboard", "text.cursor", "book", "waveform", "hand.raised", "lock.shield"};
    for (int i = 0; i < 7; ++i) {
        EXPECT_EQ(sidebar->item(i)->text(), titles[i]);
        EXPECT_FALSE(sidebar->item(i)->icon().isNull());
        EXPECT_EQ(SettingsWindow::symbol(static_cast<SettingsTab>(i)), symbols[i]);
        EXPECT_TRUE(SymbolIcon::exists(symbols[i])) << symbols[i].toStdString();
    }
    EXPECT_EQ(window->selectedTab(), SettingsTab::general);
    EXPECT_EQ(window->windowTitle(), QStringLiteral("Settings"));
    open(SettingsTab::privacy);
    EXPECT_TRUE(visibleTexts(page()).contains(QStringLiteral("Privacy")));
}

TEST_F(SettingsWindowTest, AnInvalidEndpointIsNotStoredAndShowsTheRedMessageUntilCorrected)
{
    show();
    auto *error = child<QLabel>(*window, "endpointError");
    EXPECT_EQ(
        child<QLineEdit>(*window, "endpointField")->text(), QStringLiteral("ws://127.0.0.1:8765"));
    EXPECT_EQ(child<QLineEdit>(*window, "endpointField")->placeholderText(),
        QStringLiteral("ws://127.0.0.1:8765"));
    for (const QString &bad : {QStringLiteral("ftp://example.com"), QStringLiteral("ws:/nohost"),
             QStringLiteral("WS://127.0.0.1:9000"), QStringLiteral("not a url")}) {
        commitEndpoint(bad);
        EXPECT_EQ(h.settings->endpointURL(), QUrl(QStringLiteral("ws://127.0.0.1:8765")))
            << bad.toStdString();
        EXPECT_TRUE(error->isVisible());
        EXPECT_EQ(error->text(), QStringLiteral("Enter a valid ws:// or wss:// URL."));
        EXPECT_TRUE(child<QLineEdit>(*window, "endpointField")->property("invalid").toBool());
    }
    commitEndpoint(QStringLiteral("wss://10.0.0.2:9000/engine"));
    EXPECT_EQ(h.settings->endpointURL(), QUrl(QStringLiteral("wss://10.0.0.2:9000/engine")));
    EXPECT_FALSE(error->isVisible());
    EXPECT_FALSE(child<QLineEdit>(*window, "endpointField")->property("invalid").toBool());
}

TEST_F(SettingsWindowTest, TheEndpointFieldIsReloadedFromTheStoreWhenTheWindowAppears)
{
    show();
    QTest::keyClicks(child<QLineEdit>(*window, "endpointField"), QStringLiteral("garbage"));
    window->hide();
    h.settings->setEndpointURL(QUrl(QStringLiteral("ws://127.0.0.1:9999")));
    show();
    EXPECT_EQ(
        child<QLineEdit>(*window, "endpointField")->text(), QStringLiteral("ws://127.0.0.1:9999"));
    EXPECT_FALSE(child<QLabel>(*window, "endpointError")->isVisible());
}

TEST_F(SettingsWindowTest, TheMicrophoneChoiceListsAutomaticAndEachDeviceWithItsRate)
{
    h.coordinator->start();
    ASSERT_TRUE(QTest::qWaitFor([&] { return h.coordinator->inputDevices().size() == 2; }, 3000));
    show();
    auto *choice = child<QComboBox>(*window, "microphoneChoice");
    ASSERT_EQ(choice->count(), 3);
    EXPECT_EQ(choice->itemText(0), QStringLiteral("Automatic"));
    EXPECT_EQ(choice->itemText(1), QString::fromUtf8("Built-in Microphone \xE2\x80\x94 48.0 kHz"));
    EXPECT_EQ(choice->itemText(2), QString::fromUtf8("Earbuds \xE2\x80\x94 16.0 kHz"));
    auto *caption = child<QLabel>(*window, "microphoneCaption");
    const QString rateNote = QString::fromUtf8(
        "The rate shown is each mic's capture quality. Sayvo always transcribes at 16 kHz, so a "
        "higher number isn't needed \xE2\x80\x94 but on Bluetooth, 16 kHz means the earbuds are in "
        "low-quality call mode.");
    EXPECT_EQ(caption->text(),
        QStringLiteral("Choose which microphone dictation listens to. Using your built-in "
                       "microphone lets Bluetooth earbuds keep playing audio in full quality while "
                       "you dictate. ")
            + rateNote);

    choice->setFocus();
    QTest::keyClick(choice, Qt::Key_Down);
    EXPECT_EQ(h.settings->inputDeviceUID(), QStringLiteral("mic-1"));
    EXPECT_EQ(caption->text(),
        QStringLiteral("Sayvo will use Built-in Microphone at its best available quality. ")
            + rateNote);
    QTest::keyClick(choice, Qt::Key_Down);
    EXPECT_EQ(h.settings->inputDeviceUID(), QStringLiteral("buds-1"));
    EXPECT_EQ(caption->text(),
        QStringLiteral("Sayvo will use Earbuds at its best available quality. Tip: choosing your "
                       "built-in microphone instead lets your earbuds keep playing music or a call "
                       "in full quality while you dictate. ")
            + rateNote);
}

TEST_F(SettingsWindowTest, ChoosingAutomaticRemovesTheStoredDevice)
{
    h.settings->setInputDeviceUID(QStringLiteral("mic-1"));
    h.coordinator->start();
    ASSERT_TRUE(QTest::qWaitFor([&] { return h.coordinator->inputDevices().size() == 2; }, 3000));
    show();
    auto *choice = child<QComboBox>(*window, "microphoneChoice");
    EXPECT_EQ(choice->currentIndex(), 1);
    choice->setFocus();
    QTest::keyClick(choice, Qt::Key_Up);
    EXPECT_EQ(choice->currentIndex(), 0);
    EXPECT_FALSE(h.settings->inputDeviceUID().has_value());
    EXPECT_FALSE(h.preferences.value(SettingsStore::kInputDeviceUIDKey).has_value());
}

TEST_F(SettingsWindowTest, AnUnpluggedChosenDeviceStaysChosen)
{
    h.settings->setInputDeviceUID(QStringLiteral("usb-gone"));
    show();
    auto *choice = child<QComboBox>(*window, "microphoneChoice");
    EXPECT_EQ(choice->currentText(), QStringLiteral("Unavailable microphone"));
    EXPECT_EQ(h.settings->inputDeviceUID(), QStringLiteral("usb-gone"));
}

TEST_F(SettingsWindowTest, TheLanguageChoiceOffersWhatTheEngineRecognisesAndSaysSo)
{
    show();
    auto *language = child<QComboBox>(*window, "languageChoice");
    const auto &choices = languageChoices();
    ASSERT_EQ(language->count(), static_cast<int>(choices.size()));
    EXPECT_EQ(language->itemText(0), QStringLiteral("Engine default"));
    for (std::size_t i = 0; i < choices.size(); ++i) {
        EXPECT_EQ(language->itemText(static_cast<int>(i)), choices[i].label);
    }
    auto *note = child<QLabel>(*window, "languageNote");
    ASSERT_EQ(note != nullptr, languageNote().has_value());
    if (note != nullptr) {
        EXPECT_EQ(note->text(), *languageNote());
        EXPECT_TRUE(note->isVisible());
    }
    language->setFocus();
    QTest::keyClick(language, Qt::Key_End);
    EXPECT_EQ(h.settings->language(), choices.back().value);
    QTest::keyClick(language, Qt::Key_Home);
    EXPECT_FALSE(h.settings->language().has_value());
    EXPECT_FALSE(h.preferences.value(SettingsStore::kLanguageKey).has_value());
    h.settings->setLanguage(QStringLiteral("en"));
    EXPECT_EQ(language->currentIndex(), 1);
}

TEST_F(SettingsWindowTest, AStoredLanguageTheEngineLacksIsShownAsItIs)
{
    h.settings->setLanguage(QStringLiteral("xx"));
    show();
    auto *language = child<QComboBox>(*window, "languageChoice");
    EXPECT_EQ(language->currentText(), QStringLiteral("xx (not offered by this engine)"));
    EXPECT_EQ(h.settings->language(), QStringLiteral("xx"));
    h.settings->setLanguage(QStringLiteral("en"));
    EXPECT_EQ(language->count(), static_cast<int>(languageChoices().size()));
    EXPECT_EQ(language->currentText(), QStringLiteral("English"));
}

TEST_F(SettingsWindowTest, LaunchAtLoginWritesAndRemovesTheAutostartEntry)
{
    show();
    auto *toggle = child<SettingsSwitch>(*window, "launchAtLoginSwitch");
    EXPECT_FALSE(toggle->isChecked());
    QTest::mouseClick(toggle, Qt::LeftButton);
    EXPECT_TRUE(toggle->isChecked());
    EXPECT_TRUE(h.settings->launchAtLogin());
    EXPECT_TRUE(QFile::exists(autostartEntry()));
    EXPECT_FALSE(child<QWidget>(*window, "loginApproval")->isVisible());
    QTest::mouseClick(toggle, Qt::LeftButton);
    EXPECT_FALSE(toggle->isChecked());
    EXPECT_FALSE(h.settings->launchAtLogin());
    EXPECT_FALSE(QFile::exists(autostartEntry()));
}

TEST_F(SettingsWindowTest, TheLaunchSwitchShowsWhetherTheEntryExistsWhenTheWindowAppears)
{
    show();
    window->hide();
    LoginItemXdg(config.path(), QStringLiteral("/usr/bin/sayvo")).setEnabled(true);
    show();
    EXPECT_TRUE(child<SettingsSwitch>(*window, "launchAtLoginSwitch")->isChecked());
    EXPECT_TRUE(h.settings->launchAtLogin());
    window->hide();
    QFile::remove(autostartEntry());
    show();
    EXPECT_FALSE(child<SettingsSwitch>(*window, "launchAtLoginSwitch")->isChecked());
    EXPECT_FALSE(h.settings->launchAtLogin());
}

// A login item that the system, like macOS, leaves waiting for the user's approval.
struct ApprovalLoginState
{
    LoginLaunch state = LoginLaunch::off;
    int approvalsOpened = 0;
};

class ApprovalLoginItem : public LoginItem
{
public:
    explicit ApprovalLoginItem(std::shared_ptr<ApprovalLoginState> state)
        : m_state(std::move(state))
    { }
    LoginLaunch state() const override { return m_state->state; }
    bool setEnabled(bool enabled) override
    {
        m_state->state = enabled ? LoginLaunch::awaitingApproval : LoginLaunch::off;
        return true;
    }
    void openApproval() override { ++m_state->approvalsOpened; }

private:
    std::shared_ptr<ApprovalLoginState> m_state;
};

TEST_F(SettingsWindowTest, ALaunchAwaitingApprovalStaysOnAndSaysWhereToAllowIt)
{
    auto login = std::make_shared<ApprovalLoginState>();
    window = makeWindow(std::make_unique<ApprovalLoginItem>(login));
    show();
    auto *toggle = child<SettingsSwitch>(*window, "launchAtLoginSwitch");
    auto *approval = child<QWidget>(*window, "loginApproval");
    EXPECT_FALSE(approval->isVisible());

    QTest::mouseClick(toggle, Qt::LeftButton);
    EXPECT_TRUE(toggle->isChecked());
    EXPECT_TRUE(h.settings->launchAtLogin());
    EXPECT_TRUE(approval->isVisible());
    QTest::mouseClick(child<QPushButton>(*window, "openLoginApproval"), Qt::LeftButton);
    EXPECT_EQ(login->approvalsOpened, 1);

    // Allowed in System Settings meanwhile: the note goes.
    window->hide();
    login->state = LoginLaunch::on;
    show();
    EXPECT_TRUE(toggle->isChecked());
    EXPECT_FALSE(approval->isVisible());

    // Switched off there: so is the switch.
    window->hide();
    login->state = LoginLaunch::off;
    show();
    EXPECT_FALSE(toggle->isChecked());
    EXPECT_FALSE(h.settings->launchAtLogin());
    EXPECT_FALSE(approval->isVisible());

    // Found waiting when the window opens.
    window->hide();
    login->state = LoginLaunch::awaitingApproval;
    show();
    EXPECT_TRUE(toggle->isChecked());
    EXPECT_TRUE(h.settings->launchAtLogin());
    EXPECT_TRUE(approval->isVisible());
}

TEST_F(SettingsWindowTest, TriggerAndModeChoicesAreStoredAtOnce)
{
    show();
    open(SettingsTab::trigger);
    auto *hotkey = child<SettingsRadioList>(*window, "hotkeyChoice");
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(hotkey->button(i)->text(), displayName(kAllHotkeyTriggers[i]));
    }
    EXPECT_TRUE(hotkey->button(0)->isChecked());
    // Sayvo started watching F5; another stored choice waits for the next start, and says so.
    ASSERT_EQ(h.coordinator->activeTrigger(), HotkeyTrigger::f5);
    auto *note = child<QLabel>(*window, "triggerRestartNote");
    EXPECT_TRUE(note->isVisible());
    EXPECT_EQ(note->text(),
        QStringLiteral(
            "Takes effect the next time Sayvo starts. Until then the trigger stays F5."));
    clickRadio(hotkey->button(1));
    EXPECT_EQ(h.settings->hotkeyTrigger(), HotkeyTrigger::f5);
    EXPECT_FALSE(note->isVisible());
    clickRadio(hotkey->button(2));
    EXPECT_TRUE(note->isVisible());
    clickRadio(hotkey->button(1));
    auto *mode = child<SettingsSegmentedControl>(*window, "modeChoice");
    EXPECT_EQ(mode->button(0)->text(), QStringLiteral("Hold to talk"));
    EXPECT_EQ(mode->button(1)->text(), QStringLiteral("Toggle"));
    QTest::mouseClick(mode->button(1), Qt::LeftButton);
    EXPECT_EQ(h.settings->triggerMode(), TriggerMode::toggle);
    // The new mode applies from the next press, without a restart.
    ASSERT_TRUE(h.startAndConnect());
    h.answerNothing();
    h.coordinator->handleTriggerDown();
    h.coordinator->handleTriggerUp();
    EXPECT_TRUE(h.coordinator->state().is<AppState::Listening>()) << "a toggle keeps listening";
    h.coordinator->handleTriggerDown();
    EXPECT_TRUE(h.coordinator->state().is<AppState::Processing>());
    h.settings->setHotkeyTrigger(HotkeyTrigger::menuBarToggle);
    EXPECT_TRUE(hotkey->button(3)->isChecked());
}

TEST_F(SettingsWindowTest, RightAltAsTriggerSaysSoWhenTheLayoutTypesWithIt)
{
    h.keys->rightAlt = RightAltRole::altGr;
    show();
    open(SettingsTab::trigger);
    auto *note = child<QLabel>(*window, "rightAltNote");
    EXPECT_FALSE(note->isVisible());
    clickRadio(child<SettingsRadioList>(*window, "hotkeyChoice")->button(2));
    ASSERT_EQ(h.settings->hotkeyTrigger(), HotkeyTrigger::rightOption);
    EXPECT_TRUE(note->isVisible());
    EXPECT_TRUE(note->text().contains(QStringLiteral("Right Alt is AltGr")))
        << note->text().toStdString();

    // A layout whose Right Alt composes, as the window finds it when opened again.
    window->hide();
    h.keys->rightAlt = RightAltRole::compose;
    show();
    EXPECT_TRUE(note->text().contains(QStringLiteral("Right Alt is the Compose key")))
        << note->text().toStdString();

    window->hide();
    h.keys->rightAlt = RightAltRole::alt;
    show();
    EXPECT_FALSE(note->isVisible());
}

TEST_F(SettingsWindowTest, TheInsertionMethodsShowTheirDescriptionsAndAreStored)
{
    show();
    open(SettingsTab::insertion);
    auto *method = child<SettingsRadioList>(*window, "insertionChoice");
    EXPECT_EQ(method->button(0)->text(), QStringLiteral("Paste (recommended)"));
    EXPECT_EQ(method->button(1)->text(), QStringLiteral("Accessibility (direct)"));
    const QStringList texts = visibleTexts(method);
    EXPECT_TRUE(texts.contains(PlatformTexts::pasteDescription()));
    EXPECT_TRUE(texts.contains(QStringLiteral(
        "Inserts text directly via the Accessibility API, leaving your clipboard untouched. Falls "
        "back to paste if the target app doesn't support it.")));
    clickRadio(method->button(1));
    EXPECT_EQ(h.settings->insertionMethod(), InsertionMethod::axDirect);
}

TEST_F(SettingsWindowTest, TheDictionaryEditorAddsTrimmedEntriesOnceAndRemovesChips)
{
    show();
    open(SettingsTab::dictionary);
    auto *editor = child<DictionaryChipEditor>(*window, "dictionaryEditor");
    EXPECT_EQ(editor->input()->placeholderText(), QStringLiteral("Add a word or phrase"));
    QTest::keyClicks(editor->input(), QStringLiteral("  Maren  "));
    QTest::keyClick(editor->input(), Qt::Key_Return);
    EXPECT_EQ(h.settings->personalDictionary(), QStringList {"Maren"});
    EXPECT_TRUE(editor->input()->text().isEmpty());
    QTest::keyClicks(editor->input(), QStringLiteral("Maren"));
    QTest::mouseClick(editor->addButton(), Qt::LeftButton);
    EXPECT_EQ(h.settings->personalDictionary(), QStringList {"Maren"});
    EXPECT_TRUE(editor->input()->text().isEmpty());
    QTest::keyClicks(editor->input(), QStringLiteral("maren"));
    QTest::keyClick(editor->input(), Qt::Key_Return);
    QTest::keyClicks(editor->input(), QStringLiteral("Kubernetes"));
    QTest::keyClick(editor->input(), Qt::Key_Return);
    EXPECT_EQ(h.settings->personalDictionary(), (QStringList {"Maren", "maren", "Kubernetes"}));
    ASSERT_EQ(editor->chips().size(), 3);
    EXPECT_EQ(editor->chips()[1]->text(), QStringLiteral("maren"));
    QTest::mouseClick(editor->chips()[1]->removeButton(), Qt::LeftButton);
    EXPECT_EQ(h.settings->personalDictionary(), (QStringList {"Maren", "Kubernetes"}));
    ASSERT_EQ(editor->chips().size(), 2);
}

TEST_F(SettingsWindowTest, SuggestionsCanBeAcceptedDismissedAndRequested)
{
    ASSERT_TRUE(h.startAndConnect());
    show();
    open(SettingsTab::dictionary);
    auto *none = child<QLabel>(*window, "noSuggestions");
    EXPECT_TRUE(none->isVisible());
    EXPECT_EQ(none->text(),
        QStringLiteral("No suggestions yet. When the same word is corrected the same way "
                       "repeatedly, it appears here for you to accept. Nothing is added to your "
                       "dictionary automatically."));
    EXPECT_TRUE(child<QLabel>(*window, "noExemplars")->isVisible());
    EXPECT_EQ(child<QLabel>(*window, "noExemplars")->text(),
        QStringLiteral("No repeated formatting misses found yet."));

    QTest::mouseClick(child<QPushButton>(*window, "checkSuggestions"), Qt::LeftButton);
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            const auto types = h.engine.textTypes();
            return std::find(types.begin(), types.end(), QStringLiteral("suggestions.request"))
                != types.end();
        },
        3000));

    SuggestionsMessage message;
    message.dictionary = {{"cooper netties", "Kubernetes", 4}, {"maren", "Maren", 2}};
    message.exemplars = {{"email", "best mark", "Best,\nMark", 3}};
    h.coordinator->engineClientDidReceiveSuggestions(*h.client, message);
    QTest::qWait(0);
    EXPECT_FALSE(none->isVisible());
    EXPECT_FALSE(child<QLabel>(*window, "noExemplars")->isVisible());
    QList<QPushButton *> accepts = window->findChildren<QPushButton *>("acceptSuggestion");
    ASSERT_EQ(accepts.size(), 2);
    EXPECT_TRUE(visibleTexts(page()).contains(QStringLiteral("cooper netties")));
    EXPECT_TRUE(visibleTexts(page()).contains(QStringLiteral("4")));
    EXPECT_TRUE(visibleTexts(page()).contains(QString::fromUtf8(
        "Not applied automatically \xE2\x80\x94 each domain's formatting rules are shared with "
        "everyone using that profile, so a change is reviewed and tested first rather than made "
        "silently from one person's corrections.")));
    QTest::mouseClick(accepts[0], Qt::LeftButton);
    EXPECT_EQ(h.settings->personalDictionary(), QStringList {"Kubernetes"});
    QTest::qWait(0);
    QList<QPushButton *> dismisses = window->findChildren<QPushButton *>("dismissSuggestion");
    dismisses.removeIf([](QPushButton *b) { return !b->isVisible(); });
    ASSERT_EQ(dismisses.size(), 1);
    QTest::mouseClick(dismisses[0], Qt::LeftButton);
    EXPECT_TRUE(h.coordinator->suggestions()->dictionary.empty());
    EXPECT_EQ(h.settings->personalDictionary(), QStringList {"Kubernetes"});
    EXPECT_TRUE(none->isVisible());
}

TEST_F(SettingsWindowTest, BeforeTheFirstUtteranceUsageShowsOnlyTheEmptyTextAndTheFootprint)
{
    show();
    open(SettingsTab::usage);
    EXPECT_TRUE(child<QLabel>(*window, "usageEmpty")->isVisible());
    EXPECT_EQ(child<QLabel>(*window, "usageEmpty")->text(),
        QStringLiteral("No dictation recorded yet. Statistics appear here after your first "
                       "utterance."));
    EXPECT_FALSE(child<SettingsStatCard>(*window, "usageCard")->isVisible());
    EXPECT_FALSE(child<QPushButton>(*window, "resetStatistics")->isVisible());
    EXPECT_TRUE(child<SettingsStatCard>(*window, "footprintCard")->isVisible());
    EXPECT_TRUE(child<QLabel>(*window, "footprintNote")->isVisible());
    EXPECT_EQ(child<QLabel>(*window, "footprintNote")->text(), PlatformTexts::footprintNote());
    EXPECT_FALSE(child<QLabel>(*window, "usageNote")->isVisible());
}

TEST_F(SettingsWindowTest, UsageShowsTheFiguresAndResetReturnsToTheEmptyState)
{
    h.usage->record(Stats {10.0, 25, 150.0, 0.3, 0.2, 2, 0.08});
    show();
    open(SettingsTab::usage);
    auto *card = child<SettingsStatCard>(*window, "usageCard");
    ASSERT_TRUE(card->isVisible());
    QStringList rows;
    for (const SettingsStatRow *row : card->rows()) {
        rows.append(row->label() + QStringLiteral("=") + row->value());
    }
    EXPECT_EQ(rows,
        (QStringList {"Utterances transcribed=1", "Total words spoken=25",
            "Total speaking time=<1 min", "Average speaking rate=150 wpm", "Filler word rate=8%",
            "ASR speed=5.0x realtime", "Pipeline speed=3.3x realtime"}));
    EXPECT_FALSE(child<QLabel>(*window, "usageEmpty")->isVisible());
    EXPECT_TRUE(child<QLabel>(*window, "usageNote")->isVisible());
    EXPECT_EQ(child<QLabel>(*window, "usageNote")->text(), PlatformTexts::usageNote());
    QTest::mouseClick(child<QPushButton>(*window, "resetStatistics"), Qt::LeftButton);
    EXPECT_EQ(h.usage->utterances(), 0);
    EXPECT_TRUE(child<QLabel>(*window, "usageEmpty")->isVisible());
    EXPECT_FALSE(card->isVisible());
}

TEST_F(SettingsWindowTest, TheSamplerRunsOnlyWhileTheWindowIsShown)
{
    EXPECT_EQ(window->sampler(), nullptr) << "nothing is sampled before the window is shown";
    show();
    ASSERT_NE(window->sampler(), nullptr);
    EXPECT_TRUE(window->sampler()->isStarted());
    EXPECT_EQ(window->sampler()->intervalSeconds(), 3.0);
    auto *card = child<SettingsStatCard>(*window, "footprintCard");
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return card->rows()[3]->value() != QStringLiteral("\u2014"); }, 5000));
    EXPECT_EQ(card->rows()[0]->label(), QStringLiteral("Resident memory"));
    EXPECT_TRUE(card->rows()[0]->value().endsWith(QStringLiteral(" MB"))
        || card->rows()[0]->value().endsWith(QStringLiteral(" GB")));
    EXPECT_EQ(card->rows()[2]->label(), QStringLiteral("GPU (system)"));
    EXPECT_EQ(card->rows()[2]->value(), QStringLiteral("42%"));
    EXPECT_EQ(card->rows()[3]->label(), QStringLiteral("Processes"));
    EXPECT_GE(card->rows()[3]->value().toInt(), 1);
    window->hide();
    EXPECT_EQ(window->sampler(), nullptr);
    EXPECT_EQ(card->rows()[3]->value().toInt() >= 1, true) << "the last figures stay";
    show();
    EXPECT_NE(window->sampler(), nullptr);
    EXPECT_EQ(samplersMade, 2);
}

TEST_F(SettingsWindowTest, TheFootprintIsSampledTheMomentTheWindowAppears)
{
    // An hour between samples: only the sample taken on showing can fill the card in time.
    window = std::make_unique<SettingsWindow>(
        *h.settings, *h.usage, *h.coordinator, [this] { return permissions; }, [](Permission) {},
        nullptr,
        [] {
            return std::make_unique<FootprintSampler>(
                getpid(), 3600.0, std::make_shared<FixedGpu>());
        });
    show();
    open(SettingsTab::usage);
    auto *card = child<SettingsStatCard>(*window, "footprintCard");
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return card->rows()[3]->value() != QStringLiteral("\u2014"); }, 20000));
    EXPECT_GE(card->rows()[3]->value().toInt(), 1);
    EXPECT_EQ(card->rows()[2]->value(), QStringLiteral("42%"));
}

TEST(SettingsFootprintFormatTest, MemoryIsShownInMegabytesBelowATenthOfAGigabyte)
{
    EXPECT_EQ(SettingsWindow::formatResidentMemory(50ull * 1048576), QStringLiteral("50 MB"));
    EXPECT_EQ(SettingsWindow::formatResidentMemory(107374182ull), QStringLiteral("102 MB"));
    EXPECT_EQ(SettingsWindow::formatResidentMemory(107374183ull), QStringLiteral("0.10 GB"));
    EXPECT_EQ(SettingsWindow::formatResidentMemory(1602000ull * 1024), QStringLiteral("1.53 GB"));
    EXPECT_EQ(SettingsWindow::formatResidentMemory(0), QStringLiteral("0 MB"));
}

TEST(SettingsFootprintFormatTest, CpuHasOneDecimalAndGpuNone)
{
    EXPECT_EQ(SettingsWindow::formatCpuPercent(123.456), QStringLiteral("123.5%"));
    EXPECT_EQ(SettingsWindow::formatGpuPercent(37.6), QStringLiteral("38%"));
    EXPECT_EQ(SettingsWindow::formatGpuPercent(std::nullopt), QStringLiteral("\u2014"));
}

TEST_F(SettingsWindowTest, ThePrivacySwitchSetsFeedbackWithItsCaption)
{
    show();
    open(SettingsTab::privacy);
    auto *toggle = child<SettingsSwitch>(*window, "feedbackSwitch");
    EXPECT_EQ(toggle->text(), QStringLiteral("Share post-edit corrections (opt-in, A5)"));
    EXPECT_TRUE(visibleTexts(page()).contains(PlatformTexts::privacyCaption()));
    QTest::mouseClick(toggle, Qt::LeftButton);
    EXPECT_TRUE(h.settings->feedbackEnabled());
    QTest::mouseClick(toggle, Qt::LeftButton);
    EXPECT_FALSE(h.settings->feedbackEnabled());
}

TEST_F(SettingsWindowTest, PermissionRowsAreReReadOnShowAndOpenHelp)
{
    show();
    open(SettingsTab::permissions);
    auto *mic = child<SettingsPermissionRow>(*window, "microphonePermission");
    auto *ax = child<SettingsPermissionRow>(*window, "accessibilityPermission");
    auto *input = child<SettingsPermissionRow>(*window, "inputMonitoringPermission");
    EXPECT_TRUE(mic->isGranted());
    EXPECT_FALSE(ax->isGranted());
    EXPECT_EQ(ax->statusText(), QStringLiteral("Not granted"));
    EXPECT_TRUE(input->isGranted());
    EXPECT_TRUE(visibleTexts(page()).contains(QStringLiteral("Input Monitoring")));

    permissions = {false, true, true};
    EXPECT_TRUE(mic->isGranted()) << "read only when the window appears";
    window->hide();
    show();
    EXPECT_FALSE(mic->isGranted());
    EXPECT_TRUE(ax->isGranted());

    QTest::mouseClick(mic->openButton(), Qt::LeftButton);
    QTest::mouseClick(input->openButton(), Qt::LeftButton);
    QTest::mouseClick(ax->openButton(), Qt::LeftButton);
    EXPECT_EQ(helpOpened,
        (QList<Permission> {
            Permission::microphone, Permission::inputMonitoring, Permission::accessibility}));
}

TEST_F(SettingsWindowTest, EveryTabIsPhotographed)
{
    h.settings->setPersonalDictionary({"Maren", "Kubernetes", "Sayvo", "indemnification",
        "Notwithstanding", "PostgreSQL", "Jo\u00e3o"});
    h.coordinator->start();
    ASSERT_TRUE(QTest::qWaitFor([&] { return h.coordinator->inputDevices().size() == 2; }, 3000));
    SuggestionsMessage message;
    message.dictionary = {{"cooper netties", "Kubernetes", 4}, {"say vo", "Sayvo", 2}};
    message.exemplars = {{"email", "best mark", "Best, Mark", 3}};
    h.coordinator->engineClientDidReceiveSuggestions(*h.client, message);
    show();
    for (int i = 0; i < 7; ++i) {
        const auto tab = static_cast<SettingsTab>(i);
        open(tab);
        if (tab == SettingsTab::usage) {
            EXPECT_TRUE(QTest::qWaitFor(
                [&] {
                    return child<SettingsStatCard>(*window, "footprintCard")->rows()[3]->value()
                        != QStringLiteral("\u2014");
                },
                5000));
            QTest::qWait(20);
            EXPECT_TRUE(test::saveShot(*window, QStringLiteral("settings-usage-empty")));
            h.usage->record(Stats {10.0, 25, 150.0, 0.3, 0.2, 2, 0.08});
        }
        QTest::qWait(20);
        EXPECT_TRUE(test::saveShot(*window,
            QStringLiteral("settings-%1-%2").arg(i + 1).arg(SettingsWindow::title(tab).toLower())));
    }
    open(SettingsTab::general);
    commitEndpoint(QStringLiteral("ftp://nope"));
    EXPECT_TRUE(test::saveShot(*window, QStringLiteral("settings-1-general-invalid-endpoint")));
}

} // namespace
} // namespace sayvo

namespace sayvo {
namespace {

TEST(SettingsStatCardTest, NewValuesForTheSameLabelsKeepTheRowWidgets)
{
    SettingsStatCard card;
    card.setRows({{"CPU", "1.0%"}, {"Processes", "2"}});
    const QList<SettingsStatRow *> before = card.rows();
    card.setRows({{"CPU", "7.5%"}, {"Processes", "3"}});
    EXPECT_EQ(card.rows(), before);
    EXPECT_EQ(card.rows()[0]->value(), QStringLiteral("7.5%"));
    EXPECT_EQ(card.rows()[1]->value(), QStringLiteral("3"));
    card.setRows({{"Utterances transcribed", "1"}});
    ASSERT_EQ(card.rows().size(), 1);
    EXPECT_EQ(card.rows()[0]->label(), QStringLiteral("Utterances transcribed"));
}

} // namespace
} // namespace sayvo
