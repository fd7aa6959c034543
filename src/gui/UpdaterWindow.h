#pragma once

#include <QMainWindow>

class QApplication;
class QLabel;
class QProgressBar;
class heartBeat;
class statusLog;
class tapButton;
class updateCore;

/**
 * The operator's full-screen window, 480 x 272: version, progress, a line that tells what goes on, log and
 * three buttons. Drives the core through signals and its flags, and ends the application. Main thread.
 */
class UpdaterWindow : public QMainWindow {
    Q_OBJECT

public:
    /** Reads "/keldra/config/style.css" for the whole application. Owns neither of its arguments. */
    UpdaterWindow(QApplication* application, updateCore* core);

    /** Starts the update when a package is loaded and none is running. */
    void updateStart();
    /** Cancels the run that goes on, if one does, as the operator would. */
    void endRun();
    /** A text that stays in the line until a run begins, in the place of what to press next. */
    void remind(const QString& text) { reminder = text; }

signals:
    void sendLoadConfiguration(bool reload);
    void sendStartUpdate();
    void sendCancelUpdate();
    void haltApplication();

public slots:
    void updateFinished(bool status);
    void statusMessage(QString msg);
    void updateProgress(double tick);
    void updatePackageLoaded(unsigned char mode);
    void rebootSystem();
    void startButtonAction();
    void cancelButtonAction();
    void runAllAction();
    void showProgress(QString line, bool writing);
    /** The picture that stays until the process ends. From here on the core is not listened to any more. */
    void showLastPicture();

protected:
    /** Has the package loaded as soon as the window is shown. */
    void showEvent(QShowEvent* event) override;

private:
    void applyStyle(QApplication* application);
    void buildWidgets();
    void connectCore(QApplication* application);
    void beginUpdate();
    void cancelRun();
    void conclude(bool status);
    QString remedy() const;
    QString whyNotLoaded() const;
    void showLoadFailure();
    void showVerdict(bool status);
    void appendLine(const QString& text);
    void showLine(const QString& text, const QString& advice, bool alarm = false);
    bool fits(const QString& text, int rows) const;
    QString cutToFit(const QString& text, const QString& following) const;

    heartBeat* heart;
    QProgressBar* progressGui = nullptr;
    QLabel* lineGui = nullptr;
    statusLog* statusGui = nullptr;
    tapButton* startBtnGui = nullptr;
    tapButton* cancelBtnGui = nullptr;
    tapButton* runAllBtnGui = nullptr;
    updateCore* csys;
    double curTick = 0;
    QString reminder;
    QString lastShown;       ///< the core's last text
    bool isInternal = false; ///< of this load, "Internal Error" was shown: the log says which
    bool canceling = false;  ///< what the run says of its end is held back until it has ended
};
