#pragma once

#include "PreferencesPane.h"

#include <functional>

class QCheckBox;
class QFileDialog;
class QLabel;

// The iTunes library beside ours: whether it is read (`accessiTunesLibrary`) and where its file
// is (`iTunesLibraryLocation`, the home folder written as a tilde). A change of either rescans,
// which rereads the iTunes library, or drops it, on the operation queue.
class ITunesPreferencesPane : public PreferencesPane {
    Q_OBJECT
public:
    ITunesPreferencesPane(UserDefaults &defaults, std::function<void()> rescan, QWidget *parent = nullptr);

    QString name() const override { return QStringLiteral("iTunesPreferencesPane"); }
    QString title() const override { return QStringLiteral("iTunes"); }
    QString subtitle() const override;
    QString iconName() const override { return QStringLiteral("itunes"); }
    void paneWillBecomeFront() override { updateControls(); }

    // The folder shown for a stored location: its last component dropped, the tilde expanded,
    // and a slash at the end.
    static QString folderText(const QString &location);
    // The chooser of the location: folders and the two names the library file has, nothing else.
    QFileDialog *makeChooser();
    // Stores a chosen file (the home folder as a tilde) and rescans.
    void locationChosen(const QString &path);

private:
    void updateControls();
    void changeLocation();

    std::function<void()> m_rescan;
    QCheckBox *m_access;
    QLabel *m_location;
};
