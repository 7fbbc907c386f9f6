#!/usr/bin/env python3
"""Shows that tools/check_layers.py finds what it is there to find, each case in a small project of its own."""
import contextlib
import io
import pathlib
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tools"))
sys.dont_write_bytecode = True
import check_layers  # noqa: E402

SOUND = {
    "include/vidorra/vidorra.h": '#include "vidorra/core/time.h"\n#include "vidorra/encode/encoder.h"\n',
    "include/vidorra/core/time.h": "#include <cstdint>\n",
    "include/vidorra/core/ffmpeg_fwd.h": 'extern "C" {\n#include <libavutil/pixfmt.h>\n}\n',
    "include/vidorra/picture/picture.h": '#include "vidorra/core/ffmpeg_fwd.h"\n#include "logger/logger.h"\n',
    "include/vidorra/encode/encoder.h": '#include "vidorra/picture/picture.h"\n',
    "platform/logger/include/logger/logger.h": "#include <string>\n",
    "ffmpeg/formats.h": "// av_image_copy() and LIBAVCODEC_VERSION_INT in comments are no calls.\n",
    "ffmpeg/formats.cpp": '#include "ffmpeg/formats.h"\nvoid f() { av_image_copy(); }\n',
    "ffmpeg/versions.h": "#if LIBAVCODEC_VERSION_MAJOR < 59\n#endif\n",
    "core/log.h": '#include "logger/logger.h"\n',
    "core/time.cpp": '#include "vidorra/core/time.h"\n#include "core/log.h"\n#include "ffmpeg/formats.h"\n',
    "picture/picture.cpp": '#include "vidorra/picture/picture.h"\nextern "C" {\n#include <libavcodec/avcodec.h>\n}\n',
    "image_file/save.h": '#include "vidorra/picture/picture.h"\n',
    "image_file/save.cpp": '#include "image_file/save.h"\n#include "vidorra/encode/encoder.h"\n',
    "filter/graph.h": '#include "vidorra/picture/picture.h"\n',
    "platform/z5_hw_accel/internal/z5_hw_accel/scaler.h": "#include <cstdint>\n",
    "process/device.cpp": '#include "z5_hw_accel/scaler.h"\n',
    "process/scale.h": '#include "vidorra/picture/picture.h"\n',
    "encode/encoder.cpp": '#include "filter/graph.h"\n#include "process/scale.h"\nconst char* t = "av_image_copy";\n',
    "examples/show.cpp": "#include <vidorra/vidorra.h>\n#include <libavformat/avformat.h>\n",
}


def findings(changes):
    with tempfile.TemporaryDirectory() as folder:
        root = pathlib.Path(folder)
        for name, text in {**SOUND, **changes}.items():
            (root / name).parent.mkdir(parents=True, exist_ok=True)
            (root / name).write_text(text)
        rules = check_layers.read_rules(ROOT / "tools/layers.txt")
        return list(check_layers.Project(root.resolve(), rules).findings())


class CheckLayers(unittest.TestCase):
    def expect_one(self, name, text, start):
        found = findings({name: text})
        self.assertEqual(len(found), 1, found)
        self.assertTrue(found[0].startswith(start), found[0])

    def test_a_sound_project_has_no_findings(self):
        self.assertEqual(findings({}), [])

    def test_a_lower_folder_may_not_include_a_higher_one(self):
        self.expect_one("core/time.cpp", '\n#include "vidorra/picture/picture.h"\n',
                        "core/time.cpp:2: core may not include vidorra/picture/picture.h of picture")

    def test_the_public_header_of_a_lower_folder_may_not_either(self):
        self.expect_one("include/vidorra/core/time.h", '#include "vidorra/picture/picture.h"\n',
                        "include/vidorra/core/time.h:1: core may not include")

    def test_private_headers_count_like_public_ones(self):
        self.expect_one("picture/picture.cpp", '#include "filter/graph.h"\n', "picture/picture.cpp:1: picture may not")

    def test_the_ffmpeg_layer_knows_nothing_of_the_library(self):
        self.expect_one("ffmpeg/formats.cpp", '#include "vidorra/core/time.h"\n',
                        "ffmpeg/formats.cpp:1: ffmpeg may not include")

    def test_the_platform_knows_nothing_of_the_library(self):
        self.expect_one("platform/logger/src/logger.cpp", '#include "ffmpeg/formats.h"\n',
                        "platform/logger/src/logger.cpp:1: platform may not include")

    def test_folders_of_one_level_do_not_include_each_other(self):
        self.expect_one("filter/graph.h", '#include "process/scale.h"\n', "filter/graph.h:1: filter may not include")

    def test_angle_brackets_hide_nothing(self):
        self.expect_one("core/time.cpp", "#include <vidorra/picture/picture.h>\n",
                        "core/time.cpp:1: <vidorra/picture/picture.h> is a header of ours")

    def test_spaces_hide_nothing(self):
        self.expect_one("core/time.cpp", '  #  include  "vidorra/picture/picture.h"\n', "core/time.cpp:1: core may not")

    def test_the_folder_on_top_is_included_by_no_other(self):
        self.expect_one("encode/encoder.cpp", '#include "image_file/save.h"\n',
                        "encode/encoder.cpp:1: encode may not include image_file/save.h of image_file")

    def test_public_headers_do_not_include_private_ones(self):
        self.expect_one("include/vidorra/core/time.h", '#include "core/log.h"\n',
                        "include/vidorra/core/time.h:1: core/log.h is private")

    def test_public_headers_do_not_include_the_ffmpeg_layer(self):
        self.expect_one("include/vidorra/core/time.h", '#include "ffmpeg/formats.h"\n',
                        "include/vidorra/core/time.h:1: ffmpeg/formats.h is private")

    def test_public_headers_do_not_include_an_internal_interface(self):
        self.expect_one("include/vidorra/process/scaler.h", '#include "z5_hw_accel/scaler.h"\n',
                        "include/vidorra/process/scaler.h:1: z5_hw_accel/scaler.h is private")

    def test_an_internal_interface_is_for_one_folder(self):
        self.expect_one("encode/encoder.cpp", '#include "z5_hw_accel/scaler.h"\n',
                        "encode/encoder.cpp:1: z5_hw_accel/scaler.h is private to platform process")

    def test_public_headers_include_few_headers_of_ffmpeg(self):
        self.expect_one("include/vidorra/picture/picture.h", "#include <libavcodec/avcodec.h>\n",
                        "include/vidorra/picture/picture.h:1: <libavcodec/avcodec.h> may not")

    def test_the_umbrella_header_is_for_callers(self):
        self.expect_one("encode/encoder.cpp", '#include "vidorra/vidorra.h"\n',
                        "encode/encoder.cpp:1: vidorra/vidorra.h is for callers")

    def test_an_unknown_header_in_quotes_is_found(self):
        self.expect_one("core/time.cpp", '#include "time.h"\n', 'core/time.cpp:1: "time.h" is no file of the project')

    def test_examples_use_public_headers_only(self):
        self.expect_one("examples/show.cpp", '#include "core/log.h"\n', "examples/show.cpp:1: core/log.h is private")

    def test_versions_are_asked_for_in_one_file_only(self):
        self.expect_one("ffmpeg/formats.cpp", "\n\n#if LIBAVUTIL_VERSION_MAJOR > 57\n#endif\n",
                        "ffmpeg/formats.cpp:3: LIBAVUTIL_VERSION_MAJOR may stand in")

    def test_pixel_formats_are_asked_for_in_one_folder_only(self):
        for call in ("av_pix_fmt_desc_get(f)", "av_get_pix_fmt(n)", "av_get_pix_fmt_name(f)", "av_image_copy()"):
            with self.subTest(call):
                self.expect_one("picture/picture.cpp", f"void f() {{\n    {call};\n}}\n", "picture/picture.cpp:2: av_")

    def test_a_rule_that_cannot_be_read_stops_the_check(self):
        for rule in ("allow core -> picture : whim\n", "private core picture\n"):
            with self.subTest(rule), tempfile.NamedTemporaryFile("w", suffix=".txt") as rules:
                rules.write(rule)
                rules.flush()
                with self.assertRaises(SystemExit), contextlib.redirect_stderr(io.StringIO()):
                    check_layers.read_rules(pathlib.Path(rules.name))


if __name__ == "__main__":
    unittest.main()
