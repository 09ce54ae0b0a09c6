#pragma once

// Makes the player's custom-drawn controls visible to assistive tools (AT-SPI on Linux):
// buttons as push buttons, check boxes (latching) or menu buttons with their actions, the knob
// as a dial and the position bar as a slider with a value from 0 to 1, labels and the title as
// text. The names are the controls' accessible names, which the window sets. Each control calls
// install() as it is made; the first call registers the factory.
class PlayerAccessibility {
public:
    static void install();
};
