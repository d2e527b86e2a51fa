#pragma once

#include "atr_String.h" // cow_String shares its representation
