#pragma once

#include <QAbstractButton>
#include <QCheckBox>
#include <QColor>
#include <QIcon>
#include <QLabel>
#include <QPalette>
#include <QProgressBar>
#include <QPushButton>
#include <QString>
#include <QToolButton>

class QPlainTextEdit;

namespace vellumline::Style {

// The look of every view: text styles as sizes relative to the desktop's own font, a few controls that paint
// themselves, and the colours. Every colour is taken from the palette at the time of painting, so that light,
// dark and high-contrast desktops hold, also while a view is open. Main thread only.

enum class ColorScheme { light, dark };
enum class Contrast { normal, high };

/// The program's own colours, for desktops that bring no palette of their own.
QPalette palette(ColorScheme scheme, Contrast contrast);

/// A length for the desktop's text size: as given up to the usual size, larger in proportion above it, so
/// that a fixed width holds the same words at twice the text size. Device-independent pixels.
int scaled(int length);

enum class Tone {
    primary,   ///< the text colour
    secondary, ///< weaker, for what only informs
    good,      ///< green: done, allowed
    warning    ///< amber: little is left
};
QColor color(const QPalette& palette, Tone tone);

/// A text that wraps. A word that is wider than the label, as long e-mail addresses are, is elided in its
/// middle; the whole text is then the tool tip and always the accessible name.
class Label : public QLabel {
    Q_OBJECT
  public:
    Label(const QString& text, double scale, QFont::Weight weight, QWidget* parent);

    void setTone(Tone tone);
    Tone tone() const { return tone_; }
    /// The text as it was given.
    QString fullText() const { return fullText_; }
    void setText(const QString& text);
    QSize minimumSizeHint() const override;

  protected:
    void resizeEvent(QResizeEvent* event) override;
    void changeEvent(QEvent* event) override;

  private:
    void align();
    void elide();
    void recolor();

    QString fullText_;
    QString shown_; ///< what elide() made of it
    Tone tone_ = Tone::primary;
    bool recoloring_ = false;
    bool laidOut_ = false; ///< before that the width means nothing
};

Label* title(const QString& text, QWidget* parent);
Label* headline(const QString& text, QWidget* parent);
Label* callout(const QString& text, QWidget* parent);
Label* caption(QWidget* parent);
/// The current shortcut, in a font whose signs stand apart.
Label* monospaced(QWidget* parent);
void setMedium(Label* label);

/// A button that paints itself from the palette.
class Button : public QPushButton {
    Q_OBJECT
  public:
    enum class Kind {
        plain,
        prominent, ///< the one that moves the user on
        caption,   ///< plain, in the caption font
        link       ///< a text to another place; its accessible role is that of a link
    };
    Button(const QString& text, Kind kind, QWidget* parent);

    Kind kind() const { return kind_; }
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

  protected:
    void keyPressEvent(QKeyEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

  private:
    Kind kind_;
};

Button* prominentButton(const QString& text, QWidget* parent);
Button* button(const QString& text, QWidget* parent);
Button* captionButton(const QString& text, QWidget* parent);
Button* linkButton(const QString& text, QWidget* parent);

/// A drawing that is a button; its tool tip is its accessible name.
class IconButton : public QToolButton {
    Q_OBJECT
  public:
    IconButton(QString name, const QString& toolTip, QWidget* parent);

    QSize sizeHint() const override;

  protected:
    void keyPressEvent(QKeyEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

  private:
    QString name_;
};

/// A switch with its text before it.
class Toggle : public QCheckBox {
    Q_OBJECT
  public:
    Toggle(const QString& text, QWidget* parent);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

  protected:
    bool hitButton(const QPoint& position) const override;
    void focusInEvent(QFocusEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
};

/// One of the program's drawings in a tone of the palette.
class Symbol : public QWidget {
    Q_OBJECT
  public:
    Symbol(int side, QWidget* parent);

    /// `description` is what a screen reader says; empty for a drawing whose text stands beside it.
    void setSymbol(const QString& name, Tone tone, const QString& description = {});
    const QString& name() const { return name_; }
    Tone tone() const { return tone_; }
    QSize sizeHint() const override { return {side_, side_}; }

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    int side_;
    QString name_;
    Tone tone_ = Tone::secondary;
};

/// How much of an allowance is used, as a thin bar.
class UsageBar : public QProgressBar {
    Q_OBJECT
  public:
    explicit UsageBar(QWidget* parent);

    /// Nothing is drawn for an allowance below one.
    void setUsage(qint64 used, qint64 allowed, Tone tone);
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    Tone tone_ = Tone::primary;
};

/// The rounded ground of a text editor, which shows where the keyboard goes.
class Field : public QWidget {
    Q_OBJECT
  public:
    explicit Field(QWidget* parent);

    /// Takes the editor in; it loses its own frame.
    void setEditor(QPlainTextEdit* editor);

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

  private:
    QPlainTextEdit* editor_ = nullptr;
};

/// One of the program's drawings, filled with one colour, crisp at every size and scale.
QIcon icon(const QString& name, const QColor& color);
/// The application's icon in its own colours.
QIcon applicationIcon();
QWidget* divider(QWidget* parent);

} // namespace vellumline::Style
