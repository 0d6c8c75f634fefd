// Light lettering on dark fields: a masthead, a banner, a reversed heading.
//
// Method: the pixels darker than half the paper's level form a dark mask
// (its own, since far from any letter a field shows no local contrast and
// is no ink). A component of it is a field when its box is large (at least
// half a square inch, no side under a tenth of an inch), it fills most of
// that box, and it encloses at least three holes larger than a speck:
// letters cut out of it (a letter has at most two); holes over a picture
// are not letters. The other holes are the lettering. The text layer draws
// the field and the lettering as two masks in their own colours; as dark
// ink with letter-shaped holes the field would be painted in the ink
// colour around every letter, with the low-resolution background bleeding
// into the letters.
#ifndef TAVRIN_APP_LIGHT_LETTERING_H
#define TAVRIN_APP_LIGHT_LETTERING_H

#include <vector>

#include "pipeline/components.h"

namespace tavrin {

struct LightLettering {
    std::vector<Run> fields;     // the dark fields, in mask coordinates
    std::vector<Run> lettering;  // the light letters, in mask coordinates
};

// `gray` is the page at the mask's resolution (`dpiX`, `dpiY`), `pictures`
// are in its coordinates and hold no field; holes of at most `speck` pixels
// are not lettering.
LightLettering findLightLettering(const Plane& gray, const std::vector<Rect>& pictures, int paperLevel, double dpiX,
                                  double dpiY, double speck);

}  // namespace tavrin

#endif
