#pragma once

/// The chief header: everything that the library exports. Each class also has a header of its own.

#include <Bedrock/Export.h>
#include <Bedrock/Types.h>
#include <Bedrock/Version.h>

// Memory, strings and containers
#include <Bedrock/memory/Alloc.h>
#include <Bedrock/memory/DynamicArray.h>
#include <Bedrock/memory/DynamicBuffer.h>
#include <Bedrock/memory/DynamicPtr.h>
#include <Bedrock/memory/HeapOperators.h>
#include <Bedrock/memory/Nodes.h>
#include <Bedrock/memory/PString.h>
#include <Bedrock/memory/PStringCache.h>
#include <Bedrock/memory/Range.h>
#include <Bedrock/memory/ReferenceCount.h>
#include <Bedrock/memory/String.h>

// Host frame and diagnostics
#include <Bedrock/host/Crc.h>
#include <Bedrock/host/Debugger.h>
#include <Bedrock/host/DynamicLibrary.h>
#include <Bedrock/host/Exception.h>
#include <Bedrock/host/ExceptionHandler.h>
#include <Bedrock/host/HardwareException.h>
#include <Bedrock/host/Log.h>
#include <Bedrock/host/LogClient.h>
#include <Bedrock/host/OS.h>
#include <Bedrock/host/Options.h>
#include <Bedrock/host/ResultClass.h>
#include <Bedrock/host/SharedMemory.h>

// Files
#include <Bedrock/files/BPE.h>
#include <Bedrock/files/BlockReader.h>
#include <Bedrock/files/Entry.h>
#include <Bedrock/files/File.h>
#include <Bedrock/files/FileFind.h>
#include <Bedrock/files/FileSub.h>
#include <Bedrock/files/KROMFile.h>
#include <Bedrock/files/MemoryFile.h>
#include <Bedrock/files/NameTree.h>
#include <Bedrock/files/Path.h>

// Threads, time and scheduling
#include <Bedrock/threads/CriticalSection.h>
#include <Bedrock/threads/Events.h>
#include <Bedrock/threads/Job.h>
#include <Bedrock/threads/Jobs.h>
#include <Bedrock/threads/MultiLock.h>
#include <Bedrock/threads/Mutex.h>
#include <Bedrock/threads/Semaphore.h>
#include <Bedrock/threads/SingleLock.h>
#include <Bedrock/threads/SyncObject.h>
#include <Bedrock/threads/Thread.h>
#include <Bedrock/threads/Time.h>
#include <Bedrock/threads/WEvent.h>

// Window host
#include <Bedrock/platform/WindowMessage.h>
#include <Bedrock/window/MousePointer.h>
#include <Bedrock/window/Window.h>
#include <Bedrock/window/WindowPlacement.h>
#include <Bedrock/window/WindowSurface.h>

// Maths and display helpers
#include <Bedrock/maths/Color.h>
#include <Bedrock/maths/Console.h>
#include <Bedrock/maths/LCRand.h>
#include <Bedrock/maths/Matrix3.h>
#include <Bedrock/maths/Matrix4.h>
#include <Bedrock/maths/OptimalRects.h>
#include <Bedrock/maths/Quaternion.h>
#include <Bedrock/maths/Rand.h>
#include <Bedrock/maths/Vector3.h>

// Bitmaps
#include <Bedrock/bitmap/Bitmap.h>
#include <Bedrock/bitmap/ConsoleBitmap.h>
#include <Bedrock/bitmap/ImageProcessing.h>
#include <Bedrock/bitmap/PackedColor.h>
