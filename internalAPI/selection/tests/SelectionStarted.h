#pragma once

#include "InPackageInit.h"

#include <gtest/gtest.h>

// Runs each case between a start and a stop of every package, as a host would.
class SelectionStarted : public ::testing::Test {
protected:
    void SetUp() override { Vn::InInitMgr::getInstance().initialize(); }
    void TearDown() override { Vn::InInitMgr::getInstance().finalize(); }
};
