// SPDX-License-Identifier: Apache-2.0
// The catalogue that the numbered messages come from.
#pragma once

#include "platform/catalogue.h"

MessageCatalogue &messages_catalogue();
