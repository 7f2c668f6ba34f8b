// SPDX-License-Identifier: Apache-2.0
// The locale of the environment.
#pragma once

// Takes it. One that is not installed still says which characters the terminal has: those of UTF-8 are known all the
// same, and are assumed, as for the message catalogues, where the locale names no codeset.
void take_locale();
