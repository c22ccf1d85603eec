// DIF frames.
#include "kmxf/collaborators/VideoFrame.h"
#include "support/Target.h"

namespace kmxf::fuzz {

void Run(Bytes input) {
    CDIFFrame frame;
    frame.SetDIFData(input.data(), static_cast<uint32_t>(input.size()));
    uint8_t bytes[64];
    uint32_t code = 0;
    bool flag = false;
    for (const uint32_t sequence : {1u, 2u, 0xFFFFFFFFu, 0u}) {
        frame.GetTimecode(bytes, sequence);
        frame.GetUsersBit(bytes, SEI_DATA_TYPE1, sequence);
        frame.GetUsersBit(bytes, SEI_DATA_TYPE2, sequence);
        frame.GetCLF(bytes, sequence);
    }
    frame.GetUMID(bytes);
    frame.GetVideoSystem(&code);
    frame.GetCompType(&code);
    frame.GetConsumerDVFlag(&flag);
}

}  // namespace kmxf::fuzz
