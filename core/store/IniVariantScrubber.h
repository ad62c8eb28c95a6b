#pragma once

#include <QByteArray>
#include <QByteArrayView>

namespace sayvo {

// Qt reads an INI value of the form @Variant(...) by trusting the serialized QVariant inside
// it: a damaged one can claim a list of four billion entries, and Qt reserves room for all of
// them before it notices the data is short, which ends the process. Sayvo never writes such
// values, so before Qt parses a settings file every value it could read that way is turned into
// plain text by doubling its leading '@', Qt's own escape for text starting with '@'. The store
// then sees text where it expected a preference and uses the default; no byte of the file's
// meaning is lost, and a file without such values comes back unchanged.
//
// Qt's unescaping (quotes, \x and octal escapes, skipped unknown escapes, line continuations)
// can assemble "@Variant(" from bytes that do not spell it, so the text is decoded the same way
// first. The decoding does not track where values and list items begin; a decoded "@Variant("
// counts unless the character before it is one Qt keeps in the same item, which errs towards
// escaping harmless text (such as "a, b @Variant(") rather than missing a binary value.
class IniVariantScrubber
{
public:
    static QByteArray scrubbed(QByteArrayView iniText);
};

} // namespace sayvo
