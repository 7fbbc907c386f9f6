// Prints every frame of a media file.
#include <iostream>

#include <vidorra/vidorra.h>

int main(int argc, char** argv) try {
    vidorra::ClipReader reader(argc > 1 ? argv[1] : "clip.mp4");
    while (const vidorra::ClipFrame frame = reader.read()) {
        if (const vidorra::VideoFrame* picture = frame.video()) {
            std::cout << *picture << '\n';
        } else if (const vidorra::AudioFrame* sound = frame.audio()) {
            std::cout << *sound << '\n';
        }
    }
} catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
}
