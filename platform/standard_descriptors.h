// SPDX-License-Identifier: Apache-2.0
// The descriptors that every program starts with.
#pragma once

// Descriptors 0, 1 and 2, where they are closed, are taken by what can be neither read nor written, so that no file and
// no connection gets one of these numbers and with it what is meant for the standard streams. To be called before
// anything is opened. Returns false when they cannot be taken.
[[nodiscard]] bool take_standard_descriptors();
