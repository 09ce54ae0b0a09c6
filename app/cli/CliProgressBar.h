#pragma once

#include <QString>

// A bar on standard error while long work runs, only where someone watches: a pipe or a file
// gets the command's summary alone. "Importing [#######---------]  40%".
class CliProgressBar {
public:
    CliProgressBar();
    // Wipes the bar, so the summary starts on a clean line.
    ~CliProgressBar();

    // `progress` from 0 to 1; `label` stands before the bar.
    void show(const QString &label, float progress);
    void clear();

private:
    bool m_enabled;
    int m_shownWidth = 0;
};
