#pragma once

/// Marks what a shared library shows to its users; everything else is hidden (the build uses -fvisibility=hidden).
/// Exception classes carry it too: their type information must be one object in the process to be caught by class.
#define KVO_EXPORT __attribute__((visibility("default")))
