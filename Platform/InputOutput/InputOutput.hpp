#pragma once

// The file layer: names and locations, files and folders on disk and on mounted file systems,
// tree walks, memory and compressed channels, and the file type table.
#include "InputOutput/File.hpp"
#include "InputOutput/FileEntry.hpp"
#include "InputOutput/FileHeadPrefetcher.hpp"
#include "InputOutput/FileSystem.hpp"
#include "InputOutput/FileType.hpp"
#include "InputOutput/FileTypeManager.hpp"
#include "InputOutput/FixedVFS.hpp"
#include "InputOutput/Folder.hpp"
#include "InputOutput/FolderEntry.hpp"
#include "InputOutput/IOErrors.hpp"
#include "InputOutput/Location.hpp"
#include "InputOutput/MemoryChannel.hpp"
#include "InputOutput/Name.hpp"
#include "InputOutput/TreeEnumerator.hpp"
#include "InputOutput/ZipChannel.hpp"
