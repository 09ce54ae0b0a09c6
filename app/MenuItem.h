#pragma once

#include <QString>
#include <QtGlobal>

// A menu item as the commands see it: the action it sends and what the menu gives it (a tag, a
// represented object). The validation fills in whether it is enabled, its check mark and, for
// a few, its title. A front end maps its own menu items onto this and back.
struct MenuItem {
    enum class Action {
        OpenAbout,
        OpenCredits,
        OpenPreferences,     // representedObject: the pane, or empty for the first
        OpenUserGuideAsPDF,
        OpenUserGuideAsBook, // the book reader
        OpenLibrary,
        NewPlaylist,
        AddToLibrary,
        Rescan,
        ViewSizeChanged,     // tag: the playerSize
        ToggleSongColumn,    // representedObject: the column identifier
        Play,
        Next,
        Previous,
        VolumeUp,
        VolumeDown,
        ToggleDim,
        ToggleMute,
        RepeatChanged,       // tag: the repeat mode
        ToggleShuffle,
        ToggleEffectsEnabled,
        Other,               // the front end's own (window, edit and quit items)
    };

    Action action = Action::Other;
    qint64 tag = 0;
    QString representedObject;
    QString title;
    bool state = false;
    bool hidden = false;
};
