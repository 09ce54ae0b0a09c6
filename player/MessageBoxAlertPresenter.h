#pragma once

#include "core/VEKError.h"

// Alerts of the windowed player: a modal message box over the window in front, which returns
// when the user has dismissed it. Main thread only.
class MessageBoxAlertPresenter final : public VEKAlertPresenter {
public:
    void present(const VEKError &error) override;
};
