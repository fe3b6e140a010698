// Names of the file provider protocol that the extension uses as its own.
#pragma once

#include "platform/fileprovider/protocol.h"
#include "synckit/types.h"

namespace vorlinden::fileprovider {

using platform::fileprovider::ChangeObserver;
using platform::fileprovider::Contents;
using platform::fileprovider::DeleteHandler;
using platform::fileprovider::Domain;
using platform::fileprovider::EnumerationObserver;
using platform::fileprovider::Enumerator;
using platform::fileprovider::Error;
using platform::fileprovider::FetchHandler;
using platform::fileprovider::Item;
using platform::fileprovider::ItemHandler;
using platform::fileprovider::ItemIdentifier;
using platform::fileprovider::ItemTemplate;
using platform::fileprovider::ItemVersion;
using platform::fileprovider::Manager;
using platform::fileprovider::Page;
using platform::fileprovider::Progress;
using platform::fileprovider::ReplicatedExtension;
using platform::fileprovider::Request;
using platform::fileprovider::SyncAnchor;
using platform::fileprovider::WriteHandler;

using platform::fileprovider::rootContainerItemIdentifier;
using platform::fileprovider::trashContainerItemIdentifier;
using platform::fileprovider::workingSetContainerItemIdentifier;

}  // namespace vorlinden::fileprovider
