/// The platform of the core's tests. Each fake stands in for one header of platform/include: it records what it is
/// asked, answers what the test scripted, and never asserts. All operations of the fakes may be called from any thread.
/// Every test runs in a process of its own, so a fake starts fresh and needs no reset.
#ifndef PROCMGR_TESTS_FAKE_PLATFORM_H
#define PROCMGR_TESTS_FAKE_PLATFORM_H

#include "tests/fake_platform/fake_copies.h"
#include "tests/fake_platform/fake_heartbeat.h"
#include "tests/fake_platform/fake_log.h"
#include "tests/fake_platform/fake_manifests.h"
#include "tests/fake_platform/fake_pipe.h"
#include "tests/fake_platform/manifest_builder.h"

#endif
