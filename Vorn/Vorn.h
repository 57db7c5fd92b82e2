#pragma once

// All of the recorder's public headers, for a host that wants one include. Start reading at CongestionData.h.
#include "Vorn/Chunk.h"
#include "Vorn/Clock.h"
#include "Vorn/CommandOptions.h"
#include "Vorn/Config.h"
#include "Vorn/CongestionData.h"
#include "Vorn/Entry.h"
#include "Vorn/EntryIndex.h"
#include "Vorn/GlobalBufferChunk.h"
#include "Vorn/HardwareStatus.h"
#include "Vorn/Messages.h"
#include "Vorn/Microseconds.h"
#include "Vorn/PortData.h"
#include "Vorn/PortMetaData.h"
#include "Vorn/PortMetaDataDumper.h"
#include "Vorn/Trace.h"
#include "Vorn/VornUtils.h"
