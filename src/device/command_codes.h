// Command codes and record sizes: they live with the reply table in device/protocol_table.h.
#pragma once

#include "device/protocol_table.h"
