#pragma once

#include "ApiRecords.h"
#include "CompanionConnectionState.h"
#include "PhoneCardView.h"

#include <QObject>
#include <QString>

#include <functional>
#include <memory>
#include <vector>

class QCheckBox;
class QLabel;
class QPushButton;
class QScrollArea;
class QVBoxLayout;
class QWidget;

namespace keyferry {

class FlippedView;

// The main window, "Keyferry": the paired phones (each with a remove button), an error line, the
// "Enable Accessibility" and "Generate pairing code" buttons and the "Open Keyferry at login" checkbox.
// Pure presentation: user actions leave through the four closures; the shell writes `phones`,
// `connectionState` and the controls, then calls renderPhones(). Closing the window only hides it.
//
// The window and its controls are built on first use (window() or build()), not before: a tray-only start
// loads no fonts and makes no widgets. Until then the control pointers are null and the calls below only
// remember what to show. Owns its window and, through it, every control (Qt parent ownership); lives as long
// as the shell. Main thread only.
class PairingWindowController : public QObject {
public:
    static constexpr int width = 480;
    static constexpr int height = 560;
    static constexpr int minimumWidth = 420;
    static constexpr int minimumHeight = 430;

    PairingWindowController();
    ~PairingWindowController() override;

    std::function<void()> onCreateCode;
    std::function<void(const PairedPhone&)> onRemovePhone;
    std::function<void()> onRequestAccessibility;
    std::function<void(bool)> onStartupChanged;
    // Only used where the desktop has no tray: the window's own "Quit Keyferry" button.
    std::function<void()> onQuit;
    // Called once, right after the window is built, so its owner can bring the controls up to date.
    std::function<void()> onBuilt;

    QVBoxLayout* devicesStack = nullptr;
    QLabel* errorLabel = nullptr;
    // While typing is not possible: one line saying what this desktop lacks and where to read more.
    QLabel* typingHelpLine = nullptr;
    QPushButton* addPhoneButton = nullptr;
    QPushButton* accessibilityButton = nullptr;
    QCheckBox* startupCheckbox = nullptr;
    // The tray menu's state line and quit command, shown in the window where the desktop has no tray.
    QLabel* stateLine = nullptr;
    QPushButton* quitButton = nullptr;

    std::vector<PairedPhone> phones;
    CompanionConnectionState connectionState = CompanionConnectionState::unpaired;

    // The window, built first if it is not yet.
    QWidget* window();
    void build();
    bool isBuilt() const { return windowWidget != nullptr; }
    QScrollArea& scrollView() const { return *scrollArea; }

    // Rebuilds the list from `phones` and `connectionState`: the placeholder, or one card per phone. Nothing
    // to do before the window is built (building it renders them).
    void renderPhones();

    // The line every card shows, from `connectionState`.
    PhoneStatus phoneStatus() const;

    // Asks "Remove <name>?" in a modal warning; only "Remove" calls onRemovePhone.
    void confirmRemoval(PairedPhone phone);

    // The line shown under the state while typing is not possible (empty: none), and whether to show it.
    // Both are kept for a window built later.
    void setTypingHelp(const QString& line);
    void showTypingHelp(bool visible);

    // Shows or hides the state line and "Quit Keyferry" (for a desktop without a tray); kept for a window
    // built later.
    void setTraylessControlsVisible(bool visible);

    // The actions of the controls.
    void createCode();
    void requestAccessibility();
    void startupChanged();

private:
    void configureWindow();
    void configurePhoneList();
    void configureControls();
    // The controls under the list, in a column for the window's layout to take over.
    QVBoxLayout* bottomColumn() const;
    void clearStack();

    std::unique_ptr<QWidget> windowWidget;
    QScrollArea* scrollArea = nullptr;
    FlippedView* flippedView = nullptr;
    QString typingHelp;
    bool typingHelpShown = false;
    bool traylessControlsShown = false;
};

} // namespace keyferry
