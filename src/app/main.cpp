#include "app/TeskApplication.h"

#include <QMainWindow>

int main(int argc, char** argv) {
    tesk::TeskApplication application(argc, argv);
    application.mainWindow()->show();
    return application.exec();
}
