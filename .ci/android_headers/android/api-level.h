// For .ci/android_compile: what FlatBuffers asks of Android's C library.
#pragma once

#define __ANDROID_API__ 34
