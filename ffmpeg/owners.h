#pragma once

#include <memory>

struct AVBufferPool;
struct AVBufferRef;
struct AVCodecContext;
struct AVDictionary;
struct AVFilterGraph;
struct AVFilterGraphSegment;
struct AVFilterInOut;
struct AVFrame;
struct AVIOContext;
struct AVMD5;
struct AVPacket;
struct SwrContext;
struct SwsContext;

/// The owners of FFmpeg's objects, with the function that releases each. Only classes whose interface has a
/// raw pointer call FFmpeg themselves.
namespace vidorra::ffmpeg_ext {

/// The type of the public AvPtr.
template <class T>
using Owner = std::unique_ptr<T, void (*)(T*)>;

/// Release an object, which may be null, with FFmpeg's function for its type: a list is freed with all that
/// follows, a file is closed, a reference is dropped. Graph segments exist only in some versions.
void release(AVBufferPool* pool);
void release(AVBufferRef* reference);
void release(AVCodecContext* context);
void release(AVDictionary* dictionary);
void release(AVFilterGraph* graph);
void release(AVFilterGraphSegment* segment);
void release(AVFilterInOut* list);
void release(AVFrame* frame);
void release(AVIOContext* file);
void release(AVMD5* state);
void release(AVPacket* packet);
void release(SwrContext* context);
void release(SwsContext* context);

/// Takes ownership of an object, which may be null.
template <class T>
[[nodiscard]] Owner<T> adopt(T* object) {
    return {object, [](T* adopted) { release(adopted); }};
}

/// The same for memory from av_malloc() and similar functions.
[[nodiscard]] Owner<void> adoptMemory(void* memory);

}  // namespace vidorra::ffmpeg_ext
