"""tessaly.RenderOverlay and the shapes' Draw: outlines exactly on the region's own pixels,
line widths, the tint, colours by plane, what draws nothing, every image kind turned to
colour, spaces found through the image's tree, the source left as it was, refusals."""

import numpy as np
import pytest

import tessaly
from codes import E_INVALIDARG, hresult

constants = tessaly.constants
READ = constants.luxImageDataModeRead
E_LUX_NO_PIXELS = hresult(0x8004E102)
E_SPACE_TREE_FIRST, E_SPACE_TREE_LAST = hresult(0x8004E280), hresult(0x8004E2FF)


def planes(picture):
    """The three planes of a colour image as one 3 x H x W array (a copy)."""
    return np.stack([np.asarray(picture.GetPlane(i).Get8GreyPixelMemory(READ, 0, 0, 0, 0)).copy() for i in range(3)])


def ramp(width=40, height=30):
    values = (np.arange(width * height, dtype=np.uint32) * 7 % 200 + 20).astype(np.uint8)
    return values.reshape(height, width)


def rectangle(x, y, width, height, space=None, **graphics):
    shape = tessaly.CreateObject("Tessaly.LuxRectangle")
    shape.SetXYWidthHeight(x, y, width, height)
    if space is not None:
        shape.SelectedSpaceName = space
    for name, value in graphics.items():
        setattr(shape, name, value)
    return shape


def inside_of(x, y, width, height, image_width, image_height, origin=0):
    """The pixels whose centres lie in [x, x + width) x [y, y + height), on a grid whose first
    pixel is (origin, origin)."""
    cx = np.arange(image_width) + origin + 0.5
    cy = np.arange(image_height) + origin + 0.5
    columns = (cx >= x) & (cx < x + width)
    rows = (cy >= y) & (cy < y + height)
    return rows[:, None] & columns[None, :]


def outline_of(mask, line_width):
    """Inside pixels within Chebyshev distance line_width - 1 of one with an outside 4-neighbour."""
    padded = np.pad(mask, 1)
    interior = padded[1:-1, 1:-1] & padded[:-2, 1:-1] & padded[2:, 1:-1] & padded[1:-1, :-2] & padded[1:-1, 2:]
    edge = mask & ~interior
    reach = line_width - 1
    grown = np.pad(edge, reach)
    near = np.zeros_like(mask)
    height, width = mask.shape
    for dy in range(2 * reach + 1):
        for dx in range(2 * reach + 1):
            near |= grown[dy:dy + height, dx:dx + width]
    return mask & near


def painted(picture_planes, colour):
    red, green, blue = colour & 0xFF, (colour >> 8) & 0xFF, (colour >> 16) & 0xFF
    return (picture_planes[0] == red) & (picture_planes[1] == green) & (picture_planes[2] == blue)


def test_outline_is_the_regions_edge_at_every_width():
    grey = ramp()
    image = tessaly.ImageFromArray(grey, copy=True)
    for line_width in (1, 2, 4):
        shape = rectangle(6.3, 4.6, 21, 13, Color=constants.luxColorRed, LineWidthInScreenPixels=line_width)
        picture = planes(tessaly.RenderOverlay(image, [shape]))
        expected = outline_of(inside_of(6.3, 4.6, 21, 13, 40, 30), line_width)
        # The ramp never holds (255, 0, 0): the red pixels are exactly those painted.
        np.testing.assert_array_equal(painted(picture, 0xFF), expected)
        for plane in range(3):
            np.testing.assert_array_equal(picture[plane][~expected], grey[~expected])
        assert expected.sum() > 0


def test_a_region_cut_by_the_border_draws_no_line_along_it():
    image = tessaly.ImageFromArray(ramp(30, 20), copy=True)
    shape = rectangle(-5, -4, 20, 12, Color=constants.luxColorGreen, LineWidthInScreenPixels=2)
    picture = planes(tessaly.RenderOverlay(image, shape))
    # The outline of the whole region on a grid from (-10, -10), cut to the image.
    expected = outline_of(inside_of(-5, -4, 20, 12, 50, 40, origin=-10), 2)[10:30, 10:40]
    np.testing.assert_array_equal(painted(picture, 0xFF00), expected)
    # Inside the image the region covers columns 0..14 and rows 0..7; only its right and
    # bottom sides show, and nothing lies along row 0 or column 0 but those sides' ends.
    assert expected.sum() == 2 * 15 + 2 * 8 - 4
    assert not painted(picture, 0xFF00)[0, :13].any() and not painted(picture, 0xFF00)[:6, 0].any()


def test_tint_blends_35_percent_inside_and_the_outline_lies_over_it():
    grey = ramp()
    image = tessaly.ImageFromArray(grey, copy=True)
    colour = 0x2080F0                                    # R 0xF0, G 0x80, B 0x20
    shape = rectangle(3, 2, 10, 8, Color=colour)
    picture = planes(tessaly.RenderOverlay(image, [shape], tint=True))
    inside = inside_of(3, 2, 10, 8, 40, 30)
    edge = outline_of(inside, 1)
    for plane, c in enumerate((0xF0, 0x80, 0x20)):
        tinted = (65 * grey.astype(np.int32) + 35 * c + 50) // 100
        np.testing.assert_array_equal(picture[plane][inside & ~edge], tinted[inside & ~edge])
        assert (picture[plane][edge] == c).all()
        np.testing.assert_array_equal(picture[plane][~inside], grey[~inside])


def test_what_draws_nothing_and_later_shapes_draw_over_earlier_ones():
    grey = ramp()
    image = tessaly.ImageFromArray(grey, copy=True)
    plain = np.stack([grey] * 3)
    hidden = rectangle(2, 2, 10, 10, Visible=False)
    no_colour = rectangle(2, 2, 10, 10, Color=constants.luxColorNone)
    np.testing.assert_array_equal(planes(tessaly.RenderOverlay(image, [hidden, no_colour], tint=True)), plain)
    np.testing.assert_array_equal(planes(tessaly.RenderOverlay(image, [])), plain)
    # Line styles other than solid are drawn solid.
    dashed = rectangle(2, 2, 10, 10, Color=constants.luxColorRed, LineStyle=constants.luxGraphicLineStyleDash)
    over = rectangle(2, 2, 10, 10, Color=constants.luxColorBlue)
    picture = planes(tessaly.RenderOverlay(image, (dashed, over)))
    edge = outline_of(inside_of(2, 2, 10, 10, 40, 30), 1)
    assert painted(picture, 0xFF0000)[edge].all() and not painted(picture, 0xFF).any()
    picture = planes(tessaly.RenderOverlay(image, [dashed]))
    assert painted(picture, 0xFF)[edge].all()


def test_every_image_kind_becomes_colour_and_is_left_as_it_was():
    deep = np.array([[0, 0x0ABC, 0x0FFF, 0xFFFF]], dtype=np.uint16)
    image16 = tessaly.ImageFromArray(deep, copy=True)
    for encoding, expected in ((constants.luxImage16EncodingGrey16, [0, 0x0A, 0x0F, 0xFF]),
                               (constants.luxImage16EncodingGrey12, [0, 0xAB, 0xFF, 0xFF]),
                               (constants.luxImage16EncodingGrey10, [0, 0xFF, 0xFF, 0xFF]),
                               (constants.luxImage16EncodingGrey8, [0, 0xFF, 0xFF, 0xFF])):
        image16.Encoding = encoding
        picture = planes(tessaly.RenderOverlay(image16, []))
        for plane in range(3):
            assert picture[plane][0].tolist() == expected, encoding
    assert image16.Pixel[1, 0] == 0x0ABC

    colour = np.arange(3 * 4 * 5, dtype=np.uint8).reshape(3, 4, 5)
    image = tessaly.ImageFromArray(colour.copy(), copy=True)
    before = planes(image)
    shape = rectangle(1, 1, 3, 2, Color=constants.luxColorWhite)
    picture = tessaly.RenderOverlay(image, [shape], tint=True)
    assert type(picture).__name__ == "LuxImage24PlanarColor" and (picture.Width, picture.Height) == (5, 4)
    result = planes(picture)
    np.testing.assert_array_equal(result[:, 0, :], colour[:, 0, :])
    assert (result[:, 1:3, 1:4] == 255).all()
    np.testing.assert_array_equal(planes(image), before)      # the source is not drawn on
    png = picture._repr_png_()
    assert png.startswith(b"\x89PNG\r\n\x1a\n") and png[25] == 2  # colour type: truecolour


def test_shapes_find_their_space_in_the_images_tree_and_the_picture_keeps_copies():
    image = tessaly.ImageFromArray(ramp(), copy=True)
    shift = tessaly.CreateObject("Tessaly.LuxTransform2DLinear")
    shift.SetMatrixElementsTranslation(2, 0, 0, 2, 5, 3)     # Fixture: doubled, origin at (5, 3)
    image.CoordinateSpaceTree.AddSpace("@", "Fixture", shift)
    shape = rectangle(1, 1, 4, 3, space="Fixture", Color=constants.luxColorRed)
    picture = tessaly.RenderOverlay(image, [shape])
    # Fixture (1, 1)-(5, 4) is pixels (7, 5)-(15, 11).
    np.testing.assert_array_equal(painted(planes(picture), 0xFF), outline_of(inside_of(7, 5, 8, 6, 40, 30), 1))
    # The picture has its own copy of the tree: a space added to the image's afterwards is
    # not in it, and it resolves Fixture as the image did.
    image.CoordinateSpaceTree.AddSpace("@", "Later", None)
    assert picture.CoordinateSpaceTree.LookUpName("Fixture")
    with pytest.raises(tessaly.ComError) as missing:
        picture.CoordinateSpaceTree.LookUpName("Later")
    assert E_SPACE_TREE_FIRST <= missing.value.hresult <= E_SPACE_TREE_LAST
    # Drawing into the picture again goes through the same space.
    again = planes(picture)
    shape.Draw(picture)
    np.testing.assert_array_equal(planes(picture), again)


def test_refusals_leave_everything_as_it_was():
    grey = ramp()
    image = tessaly.ImageFromArray(grey, copy=True)
    shape = rectangle(1, 1, 5, 5)
    with pytest.raises(TypeError, match="RenderOverlay takes an image"):
        tessaly.RenderOverlay(shape, [shape])
    with pytest.raises(TypeError, match="shapes must be shapes"):
        tessaly.RenderOverlay(image, [shape, image])
    with pytest.raises(TypeError):
        tessaly.RenderOverlay(image, 5)
    with pytest.raises(tessaly.ComError) as refused:
        tessaly.RenderOverlay(tessaly.CreateObject("Tessaly.LuxImage8Grey"), [shape])
    assert refused.value.hresult == E_LUX_NO_PIXELS and refused.value.source == "RenderOverlay"
    lost = rectangle(1, 1, 5, 5, space="Nowhere")
    with pytest.raises(tessaly.ComError) as refused:
        tessaly.RenderOverlay(image, [shape, lost])
    assert E_SPACE_TREE_FIRST <= refused.value.hresult <= E_SPACE_TREE_LAST
    np.testing.assert_array_equal(np.asarray(image.Get8GreyPixelMemory(READ, 0, 0, 0, 0)), grey)

    # Draw takes planar colour images of the library with pixels, and nothing else.
    picture = tessaly.RenderOverlay(image, [])
    before = planes(picture)
    for context in (image, tessaly.CreateObject("Tessaly.LuxImage24PlanarColor"), shape):
        with pytest.raises(tessaly.ComError) as refused:
            shape.Draw(context)
        assert refused.value.hresult == E_INVALIDARG and refused.value.source == "Draw"
    with pytest.raises(tessaly.ComError) as refused:
        lost.Draw(picture)
    assert E_SPACE_TREE_FIRST <= refused.value.hresult <= E_SPACE_TREE_LAST
    np.testing.assert_array_equal(planes(picture), before)
