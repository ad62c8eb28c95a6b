#pragma once

#include "desktop/DesktopPlan.h"
#include "runtime/EngineFootprint.h"
#include "ui/LoginItem.h"
#include "ui/PermissionSnapshot.h"

#include <QList>
#include <QString>
#include <QWidget>

#include <functional>
#include <memory>
#include <optional>

class QComboBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;
class QStackedWidget;
class QVBoxLayout;

namespace sayvo {

class DictionaryChipEditor;
class FootprintSampler;
class SayvoCoordinator;
class DesktopCapabilityList;
class SettingsPermissionRow;
class SettingsRadioList;
class SettingsSegmentedControl;
class SettingsStatCard;
class SettingsSwitch;
class SettingsStore;
class UsageStatsStore;

// The tabs of the Settings window, in sidebar order.
enum class SettingsTab {
    general,
    trigger,
    insertion,
    dictionary,
    usage,
    privacy,
    permissions,
};

// The Settings window: a sidebar of tabs and one content pane. Every control writes straight
// to the settings store or calls the coordinator, and redraws from what they publish; the
// engine endpoint alone is applied on commit, and only when valid. Created once on first
// request and then only hidden and shown. Main thread only; the stores and the coordinator
// must outlive it.
//
// The footprint sampler runs only while the window is visible: it is made (and samples at
// once) when the window is shown and dropped when it is hidden, since nobody reads the figures
// of a closed window. Permissions and the login item are re-read on every show.
class SettingsWindow : public QWidget
{
    Q_OBJECT

public:
    // Reads the three permissions afresh; called every time the window is shown.
    using PermissionsProvider = std::function<PermissionSnapshot()>;
    // Shows the user where a permission is granted on this platform.
    using PermissionHelpOpener = std::function<void(Permission)>;
    using SamplerFactory = std::function<std::unique_ptr<FootprintSampler>()>;

    SettingsWindow(SettingsStore &settings, UsageStatsStore &usageStats,
        SayvoCoordinator &coordinator, PermissionsProvider permissions,
        PermissionHelpOpener openPermissionHelp, std::unique_ptr<LoginItem> loginItem,
        SamplerFactory makeSampler = defaultSamplerFactory(), QWidget *parent = nullptr);
    ~SettingsWindow() override;

    // The app's own process tree, sampled every 3 seconds.
    static SamplerFactory defaultSamplerFactory();

    static QString title(SettingsTab tab);
    static QString symbol(SettingsTab tab);
    static QString formatResidentMemory(std::uint64_t bytes);
    static QString formatCpuPercent(double percent);
    static QString formatGpuPercent(std::optional<double> percent);
    // The caption under the microphone choice for the chosen device (none: Automatic).
    static QString microphoneCaption(const std::optional<QString> &deviceName, bool isBluetooth);
    static QString deviceLabel(const QString &name, double sampleRate);

    SettingsTab selectedTab() const;
    void selectTab(SettingsTab tab);
    // A band above every tab, for what the app must tell the user whichever tab is open. Make it
    // with the window as its parent; it keeps its own visibility.
    void setNotice(QWidget *notice);
    // What works in this desktop session, one line per capability, under the permissions.
    void setDesktopCapabilities(const std::vector<DesktopCapabilityStatus> &statuses);
    DesktopCapabilityList *desktopCapabilities() const { return m_desktopCapabilities; }
    FootprintSampler *sampler() const { return m_sampler.get(); }

protected:
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    QWidget *buildGeneral();
    QWidget *buildTrigger();
    QWidget *buildInsertion();
    QWidget *buildDictionary();
    QWidget *buildUsage();
    QWidget *buildPrivacy();
    QWidget *buildPermissions();

    void commitEndpoint();
    void showEndpointError(bool shown);
    void refreshDevices();
    void chooseDevice(int index);
    void refreshLanguage();
    void refreshSuggestions();
    void refreshUsage();
    void refreshFootprint(const std::optional<EngineFootprint> &footprint);
    void refreshPermissions();
    void refreshRightAltNote();
    void applyLaunchAtLogin(bool enabled);
    void refreshLaunchAtLogin();

    SettingsStore &m_settings;
    UsageStatsStore &m_usageStats;
    SayvoCoordinator &m_coordinator;
    PermissionsProvider m_permissions;
    PermissionHelpOpener m_openPermissionHelp;
    std::unique_ptr<LoginItem> m_loginItem;
    SamplerFactory m_makeSampler;
    std::unique_ptr<FootprintSampler> m_sampler;
    std::optional<EngineFootprint> m_lastFootprint;

    QListWidget *m_sidebar = nullptr;
    QStackedWidget *m_pages = nullptr;
    QVBoxLayout *m_content = nullptr;

    QLineEdit *m_endpoint = nullptr;
    QLabel *m_endpointError = nullptr;
    QComboBox *m_microphone = nullptr;
    QLabel *m_microphoneCaption = nullptr;
    QComboBox *m_language = nullptr;
    SettingsSwitch *m_launchAtLogin = nullptr;
    QWidget *m_loginApproval = nullptr;

    SettingsRadioList *m_hotkey = nullptr;
    QLabel *m_triggerNote = nullptr;
    QLabel *m_rightAltNote = nullptr;
    SettingsSegmentedControl *m_mode = nullptr;
    SettingsRadioList *m_insertion = nullptr;

    DictionaryChipEditor *m_dictionary = nullptr;
    QVBoxLayout *m_suggestionRows = nullptr;
    QLabel *m_noSuggestions = nullptr;
    QVBoxLayout *m_exemplarRows = nullptr;
    QLabel *m_exemplarNote = nullptr;
    QLabel *m_noExemplars = nullptr;
    QPushButton *m_checkSuggestions = nullptr;

    QLabel *m_usageEmpty = nullptr;
    QWidget *m_usageStatistics = nullptr;
    SettingsStatCard *m_usageCard = nullptr;
    QLabel *m_usageNote = nullptr;
    QPushButton *m_resetStatistics = nullptr;
    SettingsStatCard *m_footprintCard = nullptr;

    SettingsSwitch *m_feedback = nullptr;

    SettingsPermissionRow *m_microphonePermission = nullptr;
    SettingsPermissionRow *m_accessibilityPermission = nullptr;
    SettingsPermissionRow *m_inputMonitoringPermission = nullptr;
    DesktopCapabilityList *m_desktopCapabilities = nullptr;
};

} // namespace sayvo
