#pragma once

#include "capture/Recording.h"
#include "dbus_helper/Signature.h"

namespace ControllerDaemon::Recording
{

/// The signature text of an operation of a kind's class.
template <DbusHelper::FixedString Class, DbusHelper::FixedString Operation, typename Type>
inline constexpr const char* textOf =
    DbusHelper::signature<Type, Concat(DbusHelper::FixedString{"ControllerDaemon::"}, Class,
                                       DbusHelper::FixedString{"::"}, Operation)>;

/// Those of all operations, made from the name of the class and the prefix of those that have the kind's.
template <DbusHelper::FixedString Class, DbusHelper::FixedString Prefix, typename Code = DbusHelper::CaptureErrorCode>
inline constexpr Signatures signaturesOf{
    .start = textOf<Class, Concat(Prefix, DbusHelper::FixedString{"RecordStart"}), Code(uint32_t, uint32_t, uint32_t)>,
    .stop = textOf<Class, Concat(Prefix, DbusHelper::FixedString{"RecordStop"}), Code()>,
    .cancel = textOf<Class, Concat(Prefix, DbusHelper::FixedString{"RecordCancel"}), Code()>,
    .pause = textOf<Class, Concat(Prefix, DbusHelper::FixedString{"RecordPause"}), Code()>,
    .resume = textOf<Class, Concat(Prefix, DbusHelper::FixedString{"RecordResume"}), Code()>,
    .stateChanged = textOf<Class, Concat(Prefix, DbusHelper::FixedString{"RecordStateChangedHandler"}), void(int32_t)>,
    .grown = textOf<Class, Concat(Prefix, DbusHelper::FixedString{"GrownHandler"}), void(std::string, bool)>,
    .storagePropertiesChanged =
        textOf<Class, "StoragePropertiesChangedHandler", void(std::string, const sdbus_utils::PropertyMap&)>,
    .storageRemoved = textOf<Class, "StorageRemovedHandler", void(std::string, const std::vector<std::string>&)>,
    .stopAndCancelInvalid = textOf<Class, "StopAndCancelInvalidRecordings", void()>,
    .stopAndSaveOnStoragePath = textOf<Class, "StopAndSaveAllRecordingsOnStoragePath", bool(const std::string&)>,
    .updateMediaItem = textOf<Class, "UpdateMediaItem", void(const std::string&)>};

} // namespace ControllerDaemon::Recording
