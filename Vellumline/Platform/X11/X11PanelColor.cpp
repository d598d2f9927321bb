#include "Vellumline/Platform/X11/X11PanelColor.h"

#include "Vellumline/Platform/X11/X11Connection.h"

#include <QHash>
#include <QList>
#include <QRect>
#include <algorithm>
#include <cstring>

namespace vellumline::X11PanelColor {

namespace {

constexpr int middleLightness = 128;

QList<std::uint32_t> property(X11Connection& connection, xcb_window_t window, const QByteArray& name,
                              xcb_atom_t type) {
    constexpr std::uint32_t mostUnits = 1024;
    const auto cookie =
        xcb_get_property(connection.raw(), 0, window, connection.atom(name), type, 0, mostUnits);
    xcb_generic_error_t* error = nullptr;
    const XcbReply<xcb_get_property_reply_t> reply(xcb_get_property_reply(connection.raw(), cookie, &error));
    const XcbReply<xcb_generic_error_t> errorOwner(error); // the window may be gone by now
    if (!reply || reply->type != type || reply->format != 32)
        return {};
    const auto* values = static_cast<const std::uint32_t*>(xcb_get_property_value(reply.get()));
    return {values, values + xcb_get_property_value_length(reply.get()) / static_cast<int>(sizeof *values)};
}

/// Where the window is on the screen, in the server's pixels; empty when it is gone.
QRect placeOf(X11Connection& connection, xcb_window_t window) {
    const auto geometryCookie = xcb_get_geometry(connection.raw(), window);
    const auto originCookie =
        xcb_translate_coordinates(connection.raw(), window, connection.rootWindow(), 0, 0);
    xcb_generic_error_t* error = nullptr;
    const XcbReply<xcb_get_geometry_reply_t> geometry(
        xcb_get_geometry_reply(connection.raw(), geometryCookie, &error));
    const XcbReply<xcb_generic_error_t> geometryError(error);
    error = nullptr;
    const XcbReply<xcb_translate_coordinates_reply_t> origin(
        xcb_translate_coordinates_reply(connection.raw(), originCookie, &error));
    const XcbReply<xcb_generic_error_t> originError(error);
    if (!geometry || !origin)
        return {};
    const QRect screen(0, 0, connection.screen()->width_in_pixels, connection.screen()->height_in_pixels);
    return screen.intersected({origin->dst_x, origin->dst_y, geometry->width, geometry->height});
}

std::optional<QColor> commonestColor(X11Connection& connection, const QRect& place) {
    // One line of pixels along the bar.
    const bool upright = place.height() > place.width();
    const QRect line = upright ? QRect(place.center().x(), place.y(), 1, place.height())
                               : QRect(place.x(), place.center().y(), place.width(), 1);
    const auto cookie = xcb_get_image(
        connection.raw(), XCB_IMAGE_FORMAT_Z_PIXMAP, connection.rootWindow(),
        static_cast<std::int16_t>(line.x()), static_cast<std::int16_t>(line.y()),
        static_cast<std::uint16_t>(line.width()), static_cast<std::uint16_t>(line.height()), ~0U);
    xcb_generic_error_t* error = nullptr;
    const XcbReply<xcb_get_image_reply_t> image(xcb_get_image_reply(connection.raw(), cookie, &error));
    const XcbReply<xcb_generic_error_t> errorOwner(error);
    constexpr int deepest = 24; // and upward: four bytes a pixel
    const int pixels = line.width() * line.height();
    if (!image || image->depth < deepest || xcb_get_image_data_length(image.get()) < pixels * 4)
        return std::nullopt;
    QHash<std::uint32_t, int> counts;
    for (int i = 0; i < pixels; ++i) {
        std::uint32_t pixel = 0;
        std::memcpy(&pixel, xcb_get_image_data(image.get()) + static_cast<std::ptrdiff_t>(i) * 4,
                    sizeof pixel);
        ++counts[pixel & 0xFFFFFFU];
    }
    const auto commonest = std::max_element(counts.cbegin(), counts.cend());
    return QColor::fromRgb(commonest.key());
}

} // namespace

std::optional<QColor> read(X11Connection& connection) {
    const xcb_atom_t dock = connection.atom(QByteArrayLiteral("_NET_WM_WINDOW_TYPE_DOCK"));
    std::optional<QColor> found;
    const auto windows =
        property(connection, connection.rootWindow(), QByteArrayLiteral("_NET_CLIENT_LIST"), XCB_ATOM_WINDOW);
    for (const xcb_window_t window : windows) {
        if (!property(connection, window, QByteArrayLiteral("_NET_WM_WINDOW_TYPE"), XCB_ATOM_ATOM)
                 .contains(dock))
            continue;
        const QRect place = placeOf(connection, window);
        const auto color = place.isEmpty() ? std::nullopt : commonestColor(connection, place);
        if (!color)
            continue;
        if (found && (found->lightness() < middleLightness) != (color->lightness() < middleLightness))
            return std::nullopt;
        found = color;
    }
    return found;
}

} // namespace vellumline::X11PanelColor
