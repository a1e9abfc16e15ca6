// Picture files: what is written comes back, odd sizes and strides included, and bad bytes end in
// one clear error.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "tools/error.h"
#include "tools/picture/output_file.h"
#include "tools/picture/picture_io.h"

namespace vorn::tool {
namespace {

frame pattern(int width, int height) {
  frame f = make_frame(width, height);
  for (int y = 0; y < height; y++) {
    for (int x = 0; x < width; x++) f.luma()[y * f.padded_width + x] = uint8_t(x * 3 + y * 7);
  }
  for (size_t i = 0; i < f.luma_size() / 2; i++) f.chroma()[i] = uint8_t(90 + i * 5 % 77);
  pad_edges(f);
  return f;
}

class Files : public testing::Test {
 protected:
  Files() {
    char name[] = "/tmp/vorn_files_XXXXXX";
    directory_ = mkdtemp(name);
  }
  ~Files() override {
    const int result = std::system(("rm -r " + directory_).c_str());
    (void)result;
  }
  std::string path(const std::string& name) const { return directory_ + "/" + name; }
  std::string fault(const std::string& name, const picture_options& options = {}) const {
    try {
      read_picture(path(name), options);
    } catch (const error& e) {
      return std::string(e.what()).substr(directory_.size() + 1);
    }
    return "no fault";
  }
  std::string directory_;
};

TEST_F(Files, LosslessKindsComeBackAtEverySizeAndStride) {
  for (const auto& [width, height] : {std::pair{1, 1}, {2, 2}, {7, 5}, {16, 9}, {33, 20}}) {
    const frame f = pattern(width, height);
    for (const char* ending : {"y4m", "nv12", "nv21", "i420"}) {
      for (const int padding : {0, 1, 13}) {
        picture_options options;
        options.width = width;
        options.height = height;
        options.stride = options.out_stride = width + padding;
        const std::string name = path(std::string("f.") + ending);
        write_picture(name, f, options);
        EXPECT_EQ(read_picture(name, options).data, f.data) << ending << width << "+" << padding;
      }
    }
  }
}

TEST_F(Files, RawLayoutsDifferAsTheirNamesSay) {
  frame f = make_frame(2, 2);
  f.chroma()[0] = 10;  // U
  f.chroma()[1] = 20;  // V
  write_picture(path("f.nv12"), f);
  write_picture(path("f.nv21"), f);
  write_picture(path("f.i420"), f);
  EXPECT_EQ(read_file(path("f.nv12")), (std::vector<uint8_t>{0, 0, 0, 0, 10, 20}));
  EXPECT_EQ(read_file(path("f.nv21")), (std::vector<uint8_t>{0, 0, 0, 0, 20, 10}));
  EXPECT_EQ(read_file(path("f.i420")), (std::vector<uint8_t>{0, 0, 0, 0, 10, 20}));
}

TEST_F(Files, ColoursSurviveRgb) {
  // A colour in each corner region, wide enough that chroma's halving does not mix them.
  rgb_image image;
  image.width = 64;
  image.height = 32;
  const uint8_t colours[4][3] = {{255, 0, 0}, {0, 160, 60}, {20, 40, 200}, {128, 128, 128}};
  for (int i = 0; i < 64 * 32; i++) {
    const uint8_t* const c = colours[i % 64 / 16];
    image.data.insert(image.data.end(), c, c + 3);
  }
  const rgb_image back = to_rgb(from_rgb(image));
  for (int c = 0; c < 4; c++) {
    for (int channel = 0; channel < 3; channel++) {
      EXPECT_NEAR(back.data[size_t(16 * 64 + c * 16 + 8) * 3 + channel], colours[c][channel], 4);
    }
  }
  const frame grey = from_rgb({2, 2, std::vector<uint8_t>(12, 200)});
  EXPECT_EQ(grey.luma()[0], 200);
  EXPECT_EQ(grey.chroma()[0], 128);
  EXPECT_EQ(grey.chroma()[1], 128);
}

TEST_F(Files, PngKeepsSamplesOfColoursThatRgbHas) {
  for (const auto& [width, height] : {std::pair{64, 48}, {35, 21}, {1, 1}}) {
    frame f = make_frame(width, height);
    for (int y = 0; y < height; y++) {
      for (int x = 0; x < width; x++)
        f.luma()[y * f.padded_width + x] = uint8_t(75 + (x * 37 + y * 11) % 100);
    }
    pad_edges(f);
    for (size_t i = 0; i < f.luma_size() / 2; i++) f.chroma()[i] = uint8_t(108 + i * 13 % 41);
    write_picture(path("f.png"), f);
    EXPECT_EQ(read_picture(path("f.png")).data, f.data) << width << "x" << height;
  }
}

TEST_F(Files, PngKeepsGreyAndJpegKeepsItsPlanes) {
  frame grey = pattern(9, 7);
  grey.gray = true;
  std::fill(grey.chroma(), grey.chroma() + grey.luma_size() / 2, 128);
  write_picture(path("g.png"), grey);
  EXPECT_EQ(read_picture(path("g.png")).data, grey.data);

  // Smooth content at full quality stays within rounding when no RGB lies in between.
  frame f = make_frame(35, 21);
  for (size_t i = 0; i < f.luma_size(); i++) f.luma()[i] = uint8_t(60 + i % 36 + i / 36);
  for (size_t i = 0; i < f.luma_size() / 2; i++) f.chroma()[i] = i % 2 ? 60 : 190;
  pad_edges(f);
  picture_options options;
  options.quality = 100;
  write_picture(path("f.jpg"), f, options);
  const frame back = read_picture(path("f.jpg"));
  ASSERT_EQ(back.data.size(), f.data.size());
  for (int y = 0; y < f.height; y++) {
    for (int x = 0; x < f.width; x++) {
      EXPECT_NEAR(back.luma()[y * 36 + x], f.luma()[y * 36 + x], 2);
    }
  }
  for (size_t i = 0; i < f.luma_size() / 2; i++) EXPECT_NEAR(back.chroma()[i], f.chroma()[i], 2);
}

TEST_F(Files, JpegDescriptionSurvives) {
  stream_info info;
  info.metadata.from = file_kind::jpeg;
  info.metadata.jpeg_segments = {0xff, 0xe1, 0, 8, 'E', 'x', 'i', 'f', 0, 0};
  const std::vector<uint8_t> bytes = encode_jpeg(pattern(16, 16), 90, info);
  stream_info back;
  decode_jpeg(bytes.data(), bytes.size(), "f.jpg", &back);
  EXPECT_EQ(back.metadata.jpeg_segments, info.metadata.jpeg_segments);
}

// An EXIF segment with an orientation, in either byte order.
std::vector<uint8_t> exif(uint8_t orientation, bool little) {
  std::vector<uint8_t> bytes = {0xff, 0xe1, 0, 40, 'E', 'x', 'i', 'f', 0, 0};
  const auto put = [&](uint32_t value, int count) {
    for (int i = 0; i < count; i++)
      bytes.push_back(uint8_t(value >> 8 * (little ? i : count - 1 - i)));
  };
  for (int i = 0; i < 2; i++) bytes.push_back(little ? 'I' : 'M');
  put(42, 2);
  put(8, 4);
  put(2, 2);  // entries: a software version, the orientation
  put(0x0131, 2), put(2, 2), put(1, 4), put(0, 4);
  put(0x0112, 2), put(3, 2), put(1, 4), put(orientation, 2);  // the value's padding is cut off
  bytes[3] = uint8_t(bytes.size() - 2 + 2);
  put(0, 2);
  return bytes;
}

TEST_F(Files, OrientationTurnsAllButJpeg) {
  // Corners of the upright picture: a b over c d. Where they are stored, row by row.
  constexpr uint8_t a = 40, b = 90, c = 140, d = 190;
  const uint8_t stored[8][4] = {{a, b, c, d}, {b, a, d, c}, {d, c, b, a}, {c, d, a, b},
                                {a, c, b, d}, {b, d, a, c}, {d, b, c, a}, {c, a, d, b}};
  for (int orientation = 1; orientation <= 8; orientation++) {
    const bool turned = orientation >= 5;
    frame f = make_frame(turned ? 32 : 48, turned ? 48 : 32);
    for (int y = 0; y < f.height; y++) {
      for (int x = 0; x < f.width; x++) {
        const int corner = y / (f.height / 2) * 2 + x / (f.width / 2);
        f.luma()[y * f.padded_width + x] = stored[orientation - 1][corner];
        f.chroma()[y / 2 * f.padded_width + x / 2 * 2] =
            uint8_t(100 + stored[orientation - 1][corner] / 4);
      }
    }
    stream_info info;
    info.metadata.from = file_kind::jpeg;
    info.metadata.jpeg_segments = exif(uint8_t(orientation), orientation % 2 == 0);
    write_file(path("f.jpg"), encode_jpeg(f, 100, info));
    const auto reader = open_reader(path("f.jpg"), {});
    frame read;
    ASSERT_TRUE(reader->next(read));
    EXPECT_EQ(reader->info.orientation, orientation);
    EXPECT_EQ(read.width, f.width);  // as it is stored, for JPEG output
    for (const char* ending : {"png", "y4m", "nv12", "jpg"}) {
      const std::string name = path(std::string("g_48x32.") + ending);
      const auto writer = open_writer(name, {}, reader->info);
      writer->write(read);
      writer->finish();
      const frame g = read_picture(name);
      ASSERT_EQ(g.width, 48) << ending << orientation;
      const uint8_t upright_corners[4] = {a, b, c, d};
      for (int corner = 0; corner < 4; corner++) {
        const int x = 12 + corner % 2 * 24, y = 8 + corner / 2 * 16;
        EXPECT_NEAR(g.luma()[y * 48 + x], upright_corners[corner], 3) << ending << orientation;
        EXPECT_NEAR(g.chroma()[y / 2 * 48 + x], 100 + upright_corners[corner] / 4, 3);
      }
    }
  }
  // Turned twice is as before, at odd sizes too.
  const frame odd = pattern(7, 4);
  const frame twice = upright(upright(odd, 5), 5);
  EXPECT_EQ(twice.data, odd.data);
  EXPECT_EQ(upright(pattern(7, 5), 6).width, 5);
  // Cut short anywhere it is no orientation, and nothing worse.
  const std::vector<uint8_t> whole = exif(6, true);
  for (size_t size = 10; size + 2 < whole.size(); size++) {
    stream_info info;
    info.metadata.from = file_kind::jpeg;
    info.metadata.jpeg_segments.assign(whole.begin(), whole.begin() + ptrdiff_t(size));
    info.metadata.jpeg_segments[3] = uint8_t(size - 2);
    const std::vector<uint8_t> bytes = encode_jpeg(pattern(16, 16), 90, info);
    stream_info back;
    decode_jpeg(bytes.data(), bytes.size(), "f.jpg", &back);
    EXPECT_EQ(back.orientation, 1) << size;
  }
}

// What one format says about a picture, the other one says as well.
TEST_F(Files, DescriptionsCrossBetweenPngAndJpeg) {
  stream_info info;
  picture_metadata& m = info.metadata;
  m.from = file_kind::jpeg;
  for (unsigned i = 0; i < 150000; ++i) m.profile.push_back(uint8_t(i * i >> 7));  // three segments
  m.exif = exif(6, true);
  m.exif.erase(m.exif.begin(), m.exif.begin() + 10);  // the segment's head
  m.density = {pixel_density::inch, 300, 150};
  const std::vector<uint8_t> png = with_png_metadata(encode_png(pattern(16, 12)), m);
  stream_info from_png, from_jpeg;
  const frame f = decode_png(png.data(), png.size(), "f.png", &from_png);
  EXPECT_EQ(from_png.metadata.profile, m.profile);
  EXPECT_EQ(from_png.metadata.exif, upright_exif(m.exif));  // PNG output is turned upright
  EXPECT_EQ(from_png.metadata.density.unit, pixel_density::metre);
  EXPECT_EQ(from_png.metadata.density.x, 11811u);
  const std::vector<uint8_t> jpeg = encode_jpeg(f, 90, from_png);
  decode_jpeg(jpeg.data(), jpeg.size(), "f.jpg", &from_jpeg);
  EXPECT_EQ(from_jpeg.metadata.profile, m.profile);
  EXPECT_EQ(from_jpeg.orientation, 1);
  EXPECT_EQ(from_jpeg.metadata.density.x, 300u);
  EXPECT_EQ(from_jpeg.metadata.density.y, 150u);
  // The same format keeps its own chunks and segments as they are.
  const std::vector<uint8_t> other =
      with_png_metadata(encode_png(pattern(9, 9)), from_png.metadata);
  EXPECT_EQ(png_metadata(other.data(), other.size()).png_chunks, from_png.metadata.png_chunks);
  stream_info again;
  const std::vector<uint8_t> second = encode_jpeg(f, 90, from_jpeg);
  decode_jpeg(second.data(), second.size(), "f.jpg", &again);
  EXPECT_EQ(again.metadata.jpeg_segments, from_jpeg.metadata.jpeg_segments);
  EXPECT_EQ(lost_in(again.metadata, file_kind::y4m).size(), 3u);
  EXPECT_TRUE(lost_in(again.metadata, file_kind::png).empty());
}

TEST_F(Files, SmallFilesThatClaimMuchAreRefusedBeforeMemoryIsTaken) {
  std::vector<uint8_t> png = encode_png(pattern(40, 40));
  png[18] = png[22] = 0x40;  // 16 424 x 16 424 pixels; the header's checksum is not looked at first
  write_file(path("bomb.png"), png);
  EXPECT_NE(fault("bomb.png"), "no fault");
  std::vector<uint8_t> jpeg = encode_jpeg(pattern(40, 40), 90, {});
  const uint8_t kScan[] = {0xff, 0xda};
  const auto scan = std::search(jpeg.begin(), jpeg.end(), kScan, kScan + 2);
  const std::vector<uint8_t> one(scan, jpeg.end() - 2);
  for (int i = 0; i < 150; ++i) jpeg.insert(jpeg.end() - 2, one.begin(), one.end());
  write_file(path("scans.jpg"), jpeg);
  EXPECT_EQ(fault("scans.jpg"), "scans.jpg: a JPEG file of 151 scans; 100 at most are read");
  write_file(path("short.jpg"), std::vector<uint8_t>(jpeg.begin(), jpeg.begin() + 20));
  EXPECT_EQ(fault("short.jpg").substr(0, 35), "short.jpg: not a readable JPEG file");
  write_file(path("two.y4m"), std::string("YUV4MPEG2 W4 H4 Cmono C420jpeg\nFRAME\n"));
  EXPECT_EQ(fault("two.y4m"), "two.y4m: the YUV4MPEG2 line has two C");
}

TEST_F(Files, StreamsKeepTheirHeaderAndLength) {
  picture_options options;
  stream_info info;
  info.y4m_header = "YUV4MPEG2 W7 H5 F30000:1001 Ip A1:1 C420mpeg2 XYSCSS=420MPEG2";
  auto writer = open_writer(path("s.y4m"), options, info);
  const frame a = pattern(7, 5);
  frame changed = a;
  changed.luma()[3] ^= 1;
  const frame& b = changed;
  for (const frame* f : {&a, &b, &a}) writer->write(*f);
  writer->finish();
  auto reader = open_reader(path("s.y4m"), options);
  EXPECT_EQ(reader->info.y4m_header, info.y4m_header);
  EXPECT_EQ(reader->frame_count(), 3);
  frame f;
  for (const frame* want : {&a, &b, &a}) {
    ASSERT_TRUE(reader->next(f));
    EXPECT_EQ(f.data, want->data);
    EXPECT_FALSE(f.full_range);
  }
  EXPECT_FALSE(reader->next(f));
  EXPECT_EQ(fault("s.y4m"), "s.y4m: holds more than one frame");
}

TEST_F(Files, BadFilesAreNamedWithTheCause) {
  const auto put = [&](const std::string& name, const std::string& text) {
    write_file(path(name), text);
  };
  put("e.png", "");
  EXPECT_EQ(fault("e.png"), "e.png: the file is empty");
  put("w.y4m", "YUV4MPEG2 W0 H4\nFRAME\n");
  EXPECT_EQ(fault("w.y4m"), "w.y4m: the YUV4MPEG2 line has no valid W and H");
  put("c.y4m", "YUV4MPEG2 W4 H4 C444\nFRAME\n");
  EXPECT_EQ(
      fault("c.y4m"),
      "c.y4m: chroma format C444 is not supported (420, 420jpeg, 420mpeg2, 420paldv and mono are)");
  put("t.y4m", "YUV4MPEG2 W4 H4\nFRAME\nabc");
  EXPECT_EQ(fault("t.y4m"), "t.y4m: ends within frame 0");
  put("l.y4m", "YUV4MPEG2 W99999999 H99999999\nFRAME\n");
  EXPECT_EQ(fault("l.y4m"), "l.y4m: 99999999x99999999 pixels is no size that can be processed");
  put("s_4x4.nv12", "123");
  EXPECT_EQ(fault("s_4x4.nv12"),
            "s_4x4.nv12: 3 bytes is not a whole number of 4x4 nv12 frames of 24 bytes");
  put("s.nv12", "123");
  EXPECT_EQ(fault("s.nv12"),
            "s.nv12: raw pictures need --size WxH (or a name like photo_1920x1080.nv12)");
  const std::vector<uint8_t> png = encode_png(pattern(40, 40)),
                             jpeg = encode_jpeg(pattern(40, 40), 90, {});
  write_file(path("cut.png"), std::vector<uint8_t>(png.begin(), png.end() - png.size() / 3));
  EXPECT_EQ(fault("cut.png").substr(0, 34), "cut.png: not a readable PNG file: ");
  write_file(path("cut.jpg"), std::vector<uint8_t>(jpeg.begin(), jpeg.end() - jpeg.size() / 3));
  EXPECT_EQ(fault("cut.jpg").substr(0, 35), "cut.jpg: not a readable JPEG file: ");
}

TEST_F(Files, UnfinishedOutputLeavesNothing) {
  write_file(path("kept.y4m"), std::string("old"));
  {
    auto writer = open_writer(path("kept.y4m"), {}, {});
    writer->write(pattern(4, 4));
  }
  EXPECT_EQ(read_text_file(path("kept.y4m")), "old");
  EXPECT_EQ(expand_inputs({directory_}).size(), 1u);
}

}  // namespace
}  // namespace vorn::tool
