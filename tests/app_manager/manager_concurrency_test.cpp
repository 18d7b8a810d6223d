#include "tests/app_manager/manager_fixture.h"
