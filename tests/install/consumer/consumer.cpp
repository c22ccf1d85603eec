// Records five frames' worth of 16-bit sound as an OP-Atom file and reads it back.
#include <kmxf/kmxf.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <vector>

int main() {
    std::vector<uint8_t> sound(8008 * 2);
    for (size_t i = 0; i < sound.size(); ++i) sound[i] = static_cast<uint8_t>(i);
    const auto size = static_cast<int32_t>(sound.size());

    // A file in memory; CFileIOMain::GetFactory gives streams on real files.
    kmxf::CMemoryFileIO file;
    kmxf::CMemoryPiece piece(sound.data(), static_cast<uint32_t>(size));

    kmxf::CCreateMXFAudio writer;
    writer.SetFilename("sound.mxf");
    writer.SetVideoStandard(kmxf::VIDEO_STD_59_94I);
    writer.SetClipType(0x0001);  // no picture, one sound track
    if (writer.Open(&file, true) != kmxf::kStatusOk || writer.Write(&piece, 0) != size ||
        writer.Close() != kmxf::kStatusOk) {
        std::puts("could not be written");
        return 1;
    }

    kmxf::CReadMXFAudio reader;
    uint32_t offset = 0;
    if (reader.Open(&file, true) != kmxf::kStatusOk || reader.GetDataOffset(&offset) != kmxf::kStatusOk ||
        reader.Seek(offset, kmxf::kSeekBegin) != offset) {
        std::puts("could not be opened");
        return 1;
    }
    kmxf::CMemoryPiece back(static_cast<uint32_t>(size));
    if (reader.Read(&back) != size || !std::equal(sound.begin(), sound.end(), back.GetBuffer())) {
        std::puts("came back different");
        return 1;
    }
    std::printf("%zu bytes of file, sound at %u, %u Hz, %u bits\n", file.GetContents().size(), offset,
                reader.GetSamplingRate(), reader.GetBitsPerSample());
    return 0;
}
