// Draws the program's images and the licence PDF. Run by hand when the artwork changes; the output
// is committed:
//     make_images images <resources/images>
//     make_eula <resources/help/Eula.txt> <resources/help/Eula.pdf>
// One palette for the whole set: deep blue, a warm orange accent, white and the window grey.
#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <QPdfWriter>
#include <QTextDocument>
#include <QTextStream>

#include <cmath>
#include <map>
#include <vector>

namespace
{

const QColor Blue(0x1d, 0x5b, 0x8c);
const QColor BlueLight(0x3a, 0x86, 0xc2);
const QColor BlueDark(0x12, 0x3f, 0x63);
const QColor Orange(0xf2, 0x8c, 0x28);
const QColor Window(231, 231, 231);
const QString Font = "DejaVu Sans";

QImage Canvas(int w, int h, const QColor &fill = Qt::transparent)
{
    QImage image(w, h, QImage::Format_ARGB32_Premultiplied);
    image.fill(fill);
    return image;
}

void Save(const QImage &image, const QString &folder, const QString &name)
{
    image.save(folder + "/" + name, "PNG");
}

// A film frame with sprocket holes and a plaster across it: the product's sign.
void DrawSign(QPainter &p, const QRectF &r, const QColor &frame)
{
    p.save();
    p.setPen(Qt::NoPen);
    p.setBrush(frame);
    const qreal u = r.width() / 16;
    QPainterPath film;
    film.addRoundedRect(r.adjusted(u, 3 * u, -u, -3 * u), u, u);
    for (int i = 0; i < 6; ++i) {
        const qreal x = r.left() + 2.2 * u + i * 2.1 * u;
        film.addRect(QRectF(x, r.top() + 3.6 * u, 1.1 * u, 0.9 * u));
        film.addRect(QRectF(x, r.bottom() - 4.5 * u, 1.1 * u, 0.9 * u));
    }
    film.setFillRule(Qt::OddEvenFill);
    p.drawPath(film);
    // play triangle
    QPolygonF play;
    play << QPointF(r.left() + 6.6 * u, r.top() + 5.8 * u)
         << QPointF(r.left() + 6.6 * u, r.bottom() - 5.8 * u) << QPointF(r.left() + 10.2 * u, r.center().y());
    p.setBrush(BlueDark);
    p.drawPolygon(play);
    // plaster
    p.translate(r.center());
    p.rotate(-35);
    p.setBrush(Orange);
    p.setPen(QPen(Orange.darker(125), u * 0.25));
    p.drawRoundedRect(QRectF(-6.8 * u, -1.3 * u, 13.6 * u, 2.6 * u), 1.3 * u, 1.3 * u);
    p.setPen(Qt::NoPen);
    p.setBrush(Orange.lighter(135));
    p.drawRoundedRect(QRectF(-1.8 * u, -1.3 * u, 3.6 * u, 2.6 * u), 0.4 * u, 0.4 * u);
    p.setBrush(Orange.darker(115));
    for (int i = -1; i <= 1; ++i)
        for (int j = -1; j <= 1; j += 2)
            p.drawEllipse(QPointF(i * 0.9 * u, j * 0.6 * u), 0.18 * u, 0.18 * u);
    p.restore();
}

QImage Product(int size)
{
    QImage image = Canvas(size, size);
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF r(size * 0.04, size * 0.04, size * 0.92, size * 0.92);
    QLinearGradient g(r.topLeft(), r.bottomLeft());
    g.setColorAt(0, BlueLight);
    g.setColorAt(1, BlueDark);
    p.setPen(Qt::NoPen);
    p.setBrush(g);
    p.drawRoundedRect(r, size * 0.2, size * 0.2);
    DrawSign(p, r.adjusted(size * 0.08, size * 0.08, -size * 0.08, -size * 0.08), Qt::white);
    return image;
}

// A round button face in three states: normal, hover (lighter), pressed (darker, sunk).
enum class State { Normal, Hover, Pressed, Disabled };

QColor Face(State s)
{
    switch (s) {
    case State::Hover:
        return BlueLight;
    case State::Pressed:
        return BlueDark;
    case State::Disabled:
        return QColor(0xb4, 0xb4, 0xb4);
    default:
        return Blue;
    }
}

QImage RoundGlyph(int size, State s, const std::function<void(QPainter &, const QRectF &)> &glyph)
{
    QImage image = Canvas(size, size);
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF r(1, 1, size - 2, size - 2);
    QLinearGradient g(r.topLeft(), r.bottomLeft());
    g.setColorAt(0, Face(s).lighter(s == State::Pressed ? 100 : 118));
    g.setColorAt(1, Face(s));
    p.setPen(QPen(Face(s).darker(130), 1));
    p.setBrush(g);
    p.drawEllipse(r);
    p.setPen(Qt::NoPen);
    p.setBrush(Qt::white);
    glyph(p, s == State::Pressed ? r.translated(0, 0.6) : r);
    return image;
}

void Text(QPainter &p, const QRectF &r, const QString &text, qreal pixel, bool bold,
          int flags = Qt::AlignCenter)
{
    QFont f(Font);
    f.setPixelSize(int(std::round(pixel)));
    f.setBold(bold);
    p.setFont(f);
    p.drawText(r, flags, text);
}

QImage About(State s)
{
    return RoundGlyph(32, s, [](QPainter &p, const QRectF &r) {
        p.setPen(Qt::white);
        QFont f("DejaVu Serif");
        f.setPixelSize(21);
        f.setBold(true);
        f.setItalic(true);
        p.setFont(f);
        p.drawText(r.adjusted(0, 1, 0, 0), Qt::AlignCenter, "i");
    });
}

QImage Help(State s)
{
    return RoundGlyph(26, s, [](QPainter &p, const QRectF &r) {
        p.setPen(Qt::white);
        Text(p, r.adjusted(0, 1, 0, 0), "?", 17, true);
    });
}

QImage Stop(State s)
{
    return RoundGlyph(
        24, s == State::Normal ? State::Normal : State::Pressed, [](QPainter &p, const QRectF &r) {
            p.drawRoundedRect(QRectF(0, 0, 9, 9).translated(r.center() - QPointF(4.5, 4.5)), 1.5, 1.5);
        });
}

QImage GoBack(State s)
{
    QImage image = Canvas(28, 23);
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF r(0.5, 0.5, 27, 22);
    QLinearGradient g(r.topLeft(), r.bottomLeft());
    g.setColorAt(0, Face(s).lighter(118));
    g.setColorAt(1, Face(s));
    p.setPen(QPen(Face(s).darker(130), 1));
    p.setBrush(g);
    p.drawRoundedRect(r, 5, 5);
    QPolygonF arrow;
    const qreal dy = s == State::Pressed ? 0.6 : 0;
    arrow << QPointF(6, 11.5 + dy) << QPointF(13, 5 + dy) << QPointF(13, 9 + dy) << QPointF(22, 9 + dy)
          << QPointF(22, 14 + dy) << QPointF(13, 14 + dy) << QPointF(13, 18 + dy);
    p.setPen(Qt::NoPen);
    p.setBrush(s == State::Disabled ? QColor(0xee, 0xee, 0xee) : QColor(Qt::white));
    p.drawPolygon(arrow);
    return image;
}

QImage Setting()
{
    return RoundGlyph(32, State::Normal, [](QPainter &p, const QRectF &r) {
        QPainterPath gear;
        const QPointF c = r.center();
        const int teeth = 8;
        for (int i = 0; i < teeth * 2; ++i) {
            const qreal a0 = (i - 0.5) * M_PI / teeth, a1 = (i + 0.5) * M_PI / teeth;
            const qreal rad = (i % 2 == 0) ? 11 : 8.5;
            const QPointF p0 = c + QPointF(std::cos(a0) * rad, std::sin(a0) * rad);
            const QPointF p1 = c + QPointF(std::cos(a1) * rad, std::sin(a1) * rad);
            if (i == 0)
                gear.moveTo(p0);
            else
                gear.lineTo(p0);
            gear.lineTo(p1);
        }
        gear.closeSubpath();
        gear.addEllipse(c, 3.5, 3.5);
        gear.setFillRule(Qt::OddEvenFill);
        p.drawPath(gear);
    });
}

QImage Line(int w, int h, const QColor &mid)
{
    QImage image = Canvas(w, h);
    QPainter p(&image);
    QLinearGradient g(0, 0, w, 0);
    QColor clear = mid;
    clear.setAlpha(0);
    g.setColorAt(0, clear);
    g.setColorAt(0.15, mid);
    g.setColorAt(0.85, mid);
    g.setColorAt(1, clear);
    p.fillRect(QRect(0, 0, w, 1), g);
    if (h > 1) {
        QColor light = Qt::white;
        light.setAlpha(200);
        QLinearGradient g2(0, 0, w, 0);
        clear = light;
        clear.setAlpha(0);
        g2.setColorAt(0, clear);
        g2.setColorAt(0.15, light);
        g2.setColorAt(0.85, light);
        g2.setColorAt(1, clear);
        p.fillRect(QRect(0, 1, w, 1), g2);
    }
    return image;
}

QImage MainBar()
{
    QImage image = Canvas(600, 150);
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    p.drawImage(QRect(40, 15, 120, 120), Product(240));
    p.setPen(BlueDark);
    Text(p, QRectF(180, 28, 420, 30), "CORVANE ALDRAKE", 20, false, Qt::AlignLeft | Qt::AlignVCenter);
    p.setPen(Blue);
    Text(p, QRectF(176, 52, 424, 60), "Video Repair", 50, true, Qt::AlignLeft | Qt::AlignVCenter);
    p.setPen(QColor(0x55, 0x55, 0x55));
    Text(p, QRectF(180, 108, 420, 24), QString::fromUtf8("Repair  \u2022  Preview  \u2022  Save"), 16, false,
         Qt::AlignLeft | Qt::AlignVCenter);
    return image;
}

// One frame of the large button: a blue bar with the sign and its text; a soft light sweeps
// across it and the arrow on the right pulses.
QImage ButtonFrame(int frame, int frames)
{
    const int w = 600, h = 109;
    QImage image = Canvas(w, h, Window);
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF r(4, 4, w - 8, h - 8);
    QPainterPath shape;
    shape.addRoundedRect(r, 16, 16);
    // shadow
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(0, 0, 0, 40));
    p.drawRoundedRect(r.translated(0, 2), 16, 16);
    QLinearGradient g(r.topLeft(), r.bottomLeft());
    g.setColorAt(0, BlueLight);
    g.setColorAt(1, Blue);
    p.setBrush(g);
    p.drawPath(shape);

    // the sweeping light
    const qreal t = qreal(frame) / frames;
    const qreal x = -160 + t * (w + 320);
    QLinearGradient sweep(x - 90, 0, x + 90, 0);
    sweep.setColorAt(0, QColor(255, 255, 255, 0));
    sweep.setColorAt(0.5, QColor(255, 255, 255, 70));
    sweep.setColorAt(1, QColor(255, 255, 255, 0));
    p.save();
    p.setClipPath(shape);
    p.fillRect(r, sweep);
    p.restore();

    // sign on a white disc
    p.setBrush(Qt::white);
    p.drawEllipse(QPointF(62, h / 2.0), 40, 40);
    DrawSign(p, QRectF(30, h / 2.0 - 32, 64, 64), Blue);

    p.setPen(Qt::white);
    Text(p, QRectF(122, 18, 400, 44), "Repair Video", 34, true, Qt::AlignLeft | Qt::AlignVCenter);
    p.setPen(QColor(0xdd, 0xea, 0xf5));
    Text(p, QRectF(124, 60, 400, 28), "Add damaged MOV, MP4, M4V, M4A or F4V files", 16, false,
         Qt::AlignLeft | Qt::AlignVCenter);

    // pulsing arrow
    const qreal pulse = 0.5 + 0.5 * std::sin(t * 2 * M_PI);
    QColor arrow = Orange;
    arrow.setAlphaF(0.65 + 0.35 * pulse);
    p.setPen(Qt::NoPen);
    p.setBrush(arrow);
    const qreal ax = 540 + 6 * pulse;
    QPolygonF chevron;
    chevron << QPointF(ax - 14, h / 2.0 - 20) << QPointF(ax + 6, h / 2.0) << QPointF(ax - 14, h / 2.0 + 20)
            << QPointF(ax - 22, h / 2.0 + 12) << QPointF(ax - 10, h / 2.0) << QPointF(ax - 22, h / 2.0 - 12);
    p.drawPolygon(chevron);
    return image;
}

// ---- A small GIF89a writer: one palette shared by all frames, and the LZW coding of the format
// (codes grow from 9 to 12 bits; the table starts afresh when it is full). ----

class BitWriter
{
public:
    void Put(unsigned code, int bits)
    {
        m_acc |= code << m_used;
        m_used += bits;
        while (m_used >= 8) {
            m_bytes.push_back(char(m_acc & 0xff));
            m_acc >>= 8;
            m_used -= 8;
        }
    }
    QByteArray Finish()
    {
        if (m_used > 0)
            m_bytes.push_back(char(m_acc & 0xff));
        return m_bytes;
    }

private:
    QByteArray m_bytes;
    unsigned m_acc = 0;
    int m_used = 0;
};

QByteArray Lzw(const std::vector<unsigned char> &pixels)
{
    const unsigned clear = 256, end = 257;
    BitWriter bits;
    std::map<unsigned, unsigned> table; // (prefix code << 8 | next index) -> code
    unsigned next = 258;
    int width = 9;
    bits.Put(clear, width);
    unsigned prefix = pixels.front();
    for (size_t i = 1; i < pixels.size(); ++i) {
        const unsigned key = (prefix << 8) | pixels[i];
        const auto found = table.find(key);
        if (found != table.end()) {
            prefix = found->second;
            continue;
        }
        bits.Put(prefix, width);
        if (next < 4096) {
            table[key] = next++;
            if (next > (1u << width) && width < 12)
                ++width;
        } else {
            bits.Put(clear, width);
            table.clear();
            next = 258;
            width = 9;
        }
        prefix = pixels[i];
    }
    bits.Put(prefix, width);
    bits.Put(end, width);
    return bits.Finish();
}

QVector<QRgb> Palette(const std::vector<QImage> &frames)
{
    std::map<QRgb, int> counts;
    for (const QImage &f : frames)
        for (int y = 0; y < f.height(); ++y)
            for (int x = 0; x < f.width(); ++x)
                ++counts[f.pixel(x, y) & 0xfcfcfc];
    std::vector<std::pair<int, QRgb>> byUse;
    for (auto &c : counts)
        byUse.push_back({c.second, c.first});
    std::sort(byUse.rbegin(), byUse.rend());
    QVector<QRgb> palette;
    for (const auto &u : byUse) {
        if (palette.size() == 256)
            break;
        palette << (u.second | 0xff000000);
    }
    while (palette.size() < 256)
        palette << 0xff000000;
    return palette;
}

int Nearest(const QVector<QRgb> &palette, QRgb c, std::map<QRgb, int> &cache)
{
    auto it = cache.find(c);
    if (it != cache.end())
        return it->second;
    int best = 0, bestD = INT_MAX;
    for (int i = 0; i < palette.size(); ++i) {
        const int dr = qRed(c) - qRed(palette[i]), dg = qGreen(c) - qGreen(palette[i]),
                  db = qBlue(c) - qBlue(palette[i]);
        const int d = dr * dr * 3 + dg * dg * 4 + db * db * 2;
        if (d < bestD) {
            bestD = d;
            best = i;
        }
    }
    cache[c] = best;
    return best;
}

bool WriteGif(const QString &path, const std::vector<QImage> &frames, int delayCs)
{
    const int w = frames.front().width(), h = frames.front().height();
    const QVector<QRgb> palette = Palette(frames);
    std::map<QRgb, int> cache;
    QByteArray out("GIF89a");
    auto u16 = [&](int v) { out.append(char(v & 0xff)).append(char((v >> 8) & 0xff)); };
    u16(w);
    u16(h);
    out.append(char(0xf7)).append(char(0)).append(char(0)); // global table of 256, no background
    for (QRgb c : palette)
        out.append(char(qRed(c))).append(char(qGreen(c))).append(char(qBlue(c)));
    out.append("\x21\xff\x0bNETSCAPE2.0\x03\x01\x00\x00\x00", 19); // loop for ever
    for (const QImage &f : frames) {
        out.append("\x21\xf9\x04\x04", 4); // graphic control: keep the frame
        u16(delayCs);
        out.append(char(0)).append(char(0));
        out.append(char(0x2c));
        u16(0);
        u16(0);
        u16(w);
        u16(h);
        out.append(char(0));
        out.append(char(8)); // minimum code size
        std::vector<unsigned char> pixels;
        pixels.reserve(size_t(w) * size_t(h));
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                pixels.push_back((unsigned char)Nearest(palette, f.pixel(x, y) & 0xfcfcfc, cache));
        const QByteArray data = Lzw(pixels);
        for (int i = 0; i < data.size(); i += 255) {
            const int n = qMin(255, data.size() - i);
            out.append(char(n)).append(data.mid(i, n));
        }
        out.append(char(0));
    }
    out.append(char(0x3b));
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(out) == out.size();
}

int MakeImages(const QString &folder)
{
    QDir().mkpath(folder);
    Save(Product(256), folder, "img_Product.png");
    Save(MainBar(), folder, "img_MainBar.png");
    Save(Line(600, 2, QColor(0xb0, 0xb0, 0xb0)), folder, "img_MainPageLine.png");
    Save(Line(600, 2, QColor(0xa0, 0xa0, 0xa0)), folder, "img_Separator.png");
    Save(About(State::Normal), folder, "img_About.png");
    Save(About(State::Hover), folder, "img_AboutHover.png");
    Save(About(State::Pressed), folder, "img_AboutPress.png");
    Save(Help(State::Normal), folder, "img_Help.png");
    Save(Help(State::Hover), folder, "img_HelpHover.png");
    Save(Help(State::Pressed), folder, "img_HelpPressed.png");
    Save(Stop(State::Normal), folder, "img_Stop.png");
    Save(Stop(State::Pressed), folder, "img_StopPressed.png");
    Save(GoBack(State::Normal), folder, "img_GoBack.png");
    Save(GoBack(State::Pressed), folder, "img_GoBackPressed.png");
    Save(GoBack(State::Disabled), folder, "img_GoBackDisable.png");
    Save(Setting(), folder, "img_Setting.png");
    std::vector<QImage> frames;
    const int count = 16;
    for (int i = 0; i < count; ++i)
        frames.push_back(ButtonFrame(i, count).convertToFormat(QImage::Format_RGB32));
    return WriteGif(folder + "/img_VideoRepair.gif", frames, 8) ? 0 : 1;
}

// The licence text becomes a one-page PDF: the first line is the title, blank lines part paragraphs.
int MakeEula(const QString &textPath, const QString &pdfPath)
{
    QFile in(textPath);
    if (!in.open(QIODevice::ReadOnly | QIODevice::Text))
        return 1;
    const QStringList paragraphs = QString::fromUtf8(in.readAll()).split("\n\n", Qt::SkipEmptyParts);
    QString html = "<h2>" + paragraphs.value(0).toHtmlEscaped() + "</h2>";
    for (int i = 1; i < paragraphs.size(); ++i)
        html += "<p>" + paragraphs.at(i).simplified().toHtmlEscaped() + "</p>";
    QPdfWriter pdf(pdfPath);
    pdf.setTitle("Corvane Aldrake Video Repair - License Agreement");
    pdf.setCreator("Corvane");
    pdf.setPageSize(QPageSize(QPageSize::A4));
    pdf.setPageMargins(QMarginsF(20, 20, 20, 20), QPageLayout::Millimeter);
    QTextDocument doc;
    QFont font(Font);
    font.setPointSize(10);
    doc.setDefaultFont(font);
    doc.setHtml(html);
    doc.print(&pdf);
    return 0;
}

} // namespace

int main(int argc, char *argv[])
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() == 3 && args.at(1) == "images")
        return MakeImages(args.at(2));
    if (args.size() == 4 && args.at(1) == "eula")
        return MakeEula(args.at(2), args.at(3));
    QTextStream(stderr) << "usage: make_images images FOLDER | make_images eula TEXT PDF\n";
    return 2;
}
