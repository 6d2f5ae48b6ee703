#include "ChannelProbe.h"

#include "EnumNames.h"

namespace dvrctl {

ChannelProbe::ChannelProbe(dvrspace::IDVR &service, int encId) : mService(service), mEncId(encId) {}

bool ChannelProbe::known() {
    if (!mKnown) {
        mKnown = false;
        const int count = mService.getRecorderCount();
        for (int index = 0; index < count && !*mKnown; ++index) {
            int encId = 0;
            mKnown = mService.getEncoder(index, &encId) == 0 && encId == mEncId;
        }
    }
    return *mKnown;
}

bool ChannelProbe::cameraAttached() {
    int index = 0;
    return known() && mService.getAttachedCamera(mEncId, &index) == 0;
}

bool ChannelProbe::audioAttached() {
    int index = 0;
    return known() && mService.getAttachedAudio(mEncId, &index) == 0;
}

int ChannelProbe::state() {
    return mService.getCurrentState(mEncId);
}

dvrguard::ChannelNaming ChannelProbe::naming() {
    dvrguard::ChannelNaming naming;
    naming.format = mService.getOutputFormat(mEncId);
    naming.fileLengthS = mService.getFileLength(mEncId);
    dvrspace::EncoderDeviceCaps_t caps{};
    if (mService.getEncoderCapability(mEncId, &caps) == 0) {
        naming.fileNameLengthLimit = caps.file_name_length_limit;
    }
    return naming;
}

dvrguard::Situation ChannelProbe::situation(const std::string &operation) {
    dvrguard::Situation situation;
    situation.operation = operation;
    situation.encId = mEncId;
    situation.channelKnown = known();
    if (situation.channelKnown) {
        situation.state = state();
        situation.stateName = EnumNames::states().name(*situation.state);
        situation.cameraAttached = cameraAttached();
    }
    return situation;
}

}  // namespace dvrctl
