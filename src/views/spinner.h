// The small turning mark of running work.
#pragma once

#include <QTimer>
#include <QWidget>

/// Turns while animating, shows nothing otherwise. Keeps its place in the layout. Main thread only.
class Spinner : public QWidget
{
    Q_OBJECT

public:
    explicit Spinner(QWidget *parent = nullptr);

    void setAnimating(bool animating);
    bool isAnimating() const { return m_timer.isActive(); }

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    void turn();

    QTimer m_timer;
    int m_step = 0;
};
