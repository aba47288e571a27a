#include "app/TeskApplication.h"

#include <QMainWindow>
#include <gtest/gtest.h>

TEST(TeskApplication, OpensAnEmptyWindowTitledTesk) {
    auto window = tesk::createEmptyWindow();
    window->show();
    EXPECT_EQ(window->windowTitle(), QStringLiteral("Tesk"));
    EXPECT_TRUE(window->isVisible());
    EXPECT_GT(window->width(), 0);
}
