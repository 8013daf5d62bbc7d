#pragma once

#include "capture/Recording.h"
#include "dbus_helper/OperationText.h"

namespace ControllerDaemon
{

/// The signature texts of a kind of recording, made from the name of its class and the prefix of its operations.
template <DbusHelper::FixedString Class, DbusHelper::FixedString Prefix>
struct RecordingTexts
{
    /// Of an operation that goes by the same name in every kind.
    template <typename Type, DbusHelper::FixedString Operation>
    static constexpr const char* shared =
        DbusHelper::operationText<Type, Concat(DbusHelper::FixedString{"ControllerDaemon::"}, Class,
                                               DbusHelper::FixedString{"::"}, Operation)>.c_str();

    /// Of an operation that has the kind's prefix.
    template <typename Type, DbusHelper::FixedString Operation>
    static constexpr const char* own = shared<Type, Concat(Prefix, Operation)>;

    template <DbusHelper::FixedString Operation>
    static constexpr const char* handler = own<sd_bus_message_handler_t, Operation>;

    using Code = DbusHelper::CaptureErrorCode;
    static constexpr Recording::Signatures all{
        .start = own<Code(uint32_t, uint32_t, uint32_t), "RecordStart">,
        .stop = own<Code(), "RecordStop">,
        .cancel = own<Code(), "RecordCancel">,
        .pause = own<Code(), "RecordPause">,
        .resume = own<Code(), "RecordResume">,
        .stateChanged = own<void(int32_t), "RecordStateChangedHandler">,
        .grown = own<void(std::string, bool), "GrownHandler">,
        .storagePropertiesChanged =
            shared<void(std::string, const sdbus_utils::PropertyMap&), "StoragePropertiesChangedHandler">,
        .storageRemoved = shared<void(std::string, const std::vector<std::string>&), "StorageRemovedHandler">,
        .stopAndCancelInvalid = shared<void(), "StopAndCancelInvalidRecordings">,
        .stopAndSaveOnStoragePath = shared<bool(const std::string&), "StopAndSaveAllRecordingsOnStoragePath">,
        .updateMediaItem = shared<void(const std::string&), "UpdateMediaItem">};
};

} // namespace ControllerDaemon
