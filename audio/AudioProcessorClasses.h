#pragma once

// Registers the playback layer's processors by class name ("Muter", "Dimmer",
// "HeadphonesProcessor") so that graph descriptions and processorWithSettings() can make them.
// Main thread; idempotent.
void registerAudioProcessorClasses();
