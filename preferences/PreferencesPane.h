#pragma once

#include <QString>
#include <QVariant>
#include <QWidget>

class PreferencesSection;
class QComboBox;
class QVBoxLayout;
class UserDefaults;

// One pane of the preferences: controls that edit settings in the store. The panel calls
// paneWillBecomeFront() each time the pane comes to the front, and the pane then fills every
// control from the settings. A control the user changes writes its setting at once, a record
// (a dictionary) always replaced whole, since that is what the engine observes; there is no apply
// button and nothing is validated. Controls are filled quietly (user-only signals such as
// activated, clicked and VEKSlider::edited write), so filling never writes back.
//
// Each control carries the object name of its role ("sampleRatesPopup"), which is also how tests
// find it. Main thread only.
class PreferencesPane : public QWidget {
    Q_OBJECT
public:
    explicit PreferencesPane(UserDefaults &defaults, QWidget *parent = nullptr);

    // The pane's class name, by which the menu asks for it ("HeadphonesPreferencesPane").
    virtual QString name() const = 0;
    virtual QString title() const = 0;
    // One line under the title, saying what the pane is for.
    virtual QString subtitle() const = 0;
    // The name of the pane's icon among the preferences art.
    virtual QString iconName() const = 0;
    virtual void paneWillBecomeFront() = 0;

    UserDefaults &defaults() const { return m_defaults; }

    // Popups whose items carry an integer tag, as the settings store them.
    static void addTaggedItem(QComboBox *popup, const QString &text, qint64 tag);
    // Selects the item with `tag`; with none, no item is selected. False when there was none.
    static bool selectTag(QComboBox *popup, qint64 tag);
    static qint64 selectedTag(const QComboBox *popup);

protected:
    // A card of related rows, added below the others.
    PreferencesSection *addSection(const QString &title);
    // A new popup, a check box, named for their role and for assistive tools.
    QComboBox *makePopup(const QString &objectName, const QString &accessibleName);
    // Copies the record `key`, sets `entry` in it and stores the copy.
    void storeEntry(const QString &key, const QString &entry, const QVariant &value);
    // Ends the column of sections: what is left of the height stays below them.
    void finishLayout();

private:
    UserDefaults &m_defaults;
    QVBoxLayout *m_layout;
};
