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

/// The owners of FFmpeg's objects: the one list of what releases which. Classes that hold a raw pointer,
/// where their interface says so, call FFmpeg themselves.
namespace vidorra::ffmpeg_ext {

/// The type of the public AvPtr.
template <class T>
using Owner = std::unique_ptr<T, void (*)(T*)>;

/// Release an object, which may be null, in FFmpeg's way for its type: a list is freed with all that follows,
/// a file is closed, and a reference is given up. Graph segments exist in some versions only.
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

/// The same for memory from av_malloc() and its like.
[[nodiscard]] Owner<void> adoptMemory(void* memory);

}  // namespace vidorra::ffmpeg_ext
