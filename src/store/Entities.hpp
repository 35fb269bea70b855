#pragma once

#include "platform/model/ModelContainer.hpp"
#include "platform/model/Schema.hpp"
#include "store/FileItem.hpp"
#include "store/Library.hpp"
#include "store/Playlist.hpp"
#include "store/PlaylistFolder.hpp"
#include "store/PlaylistItem.hpp"
#include "store/ScanRun.hpp"
#include "store/Track.hpp"

namespace velto {

using model::ModelContext;
using model::StoreError;

/// The seven entities under version 1.0.0.
[[nodiscard]] model::Schema storeSchema();

} // namespace velto
