#include "MixedSampleText.h"

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

namespace keyferry {

namespace {

struct Section {
    std::size_t share; // code points
    std::vector<std::string_view> sentences;
};

std::size_t codePointCount(std::string_view text) {
    std::size_t count = 0;
    for (const char byte : text) {
        count += (static_cast<unsigned char>(byte) & 0xC0) != 0x80 ? 1 : 0;
    }
    return count;
}

// Everyday messages: every kind of character, as many distinct ones as a few conversations hold.
const std::vector<Section>& everydaySections() {
    static const std::vector<Section> all = {
        {2800,
         {"The quick brown fox jumps over the lazy dog.", "Pack my box with five dozen liquor jugs!",
          "if (count > 0 && items[i] != nullptr) { return sum / count; } // 100% done",
          "Email me at someone@example.com or call +1 (555) 010-4477; ask for \"Sam\" & 'Alex'.",
          "Keys: ~ ` ! @ # $ % ^ & * ( ) _ + - = [ ] { } | \\ : ; < > , . ? /",
          "SHIPPING NOTICE: ORDER 7781 LEAVES MONDAY AT 09:30."}},
        {1700,
         {"Où est passé l'été ? Ça, c'est déjà ÉVIDENT pour Élodie et Ève.",
          "Grüße aus Köln: Äpfel, Öl und Übermut auf der Straße.",
          "Señor Muñoz, ¿qué tal? ¡Mañana en São Paulo con acción!"}},
        {1200, {"Привет, как дела? Всё хорошо, спасибо!", "Доброе утро!"}},
        {1000, {"Καλημέρα σας, τι κάνετε;", "ΚΑΛΗΜΕΡΑ ΑΘΗΝΑ."}},
        {900, {"我能吞下玻璃而不伤身体。", "こんにちは、ありがとう。"}},
        {800,
         {"Hi 👋 👋🏽 thumbs 👍🏻 👍🏿", "Family 👨‍👩‍👧‍👦 and 👩‍💻 at work",
          "Flags 🇫🇷 🇯🇵 and ❤️ 🎉"}},
        {600, {"e\u0301 a\u0300 n\u0303 o\u0308 u\u0308 A\u030A"}},
        {1000, {"name\tage\tcity", "Ada\t36\tLondon", "Linus\t54\tPortland", "\tindented\t\tdouble tab"}},
    };
    return all;
}

// Many languages at once: more distinct characters than the spare keycodes of a keyboard can hold.
const std::vector<Section>& manyScriptSections() {
    static const std::vector<Section> all = {
        {2600,
         {"The quick brown fox jumps over the lazy dog.", "Pack my box with five dozen liquor jugs!",
          "if (count > 0 && items[i] != nullptr) { return sum / count; } // 100% done"}},
        {1600,
         {"Où est passé l'été ? Ça, c'est déjà ÉVIDENT pour Élodie et Ève.",
          "Grüße aus Köln: Äpfel, Öl und Übermut auf der Straße.",
          "Señor Muñoz, ¿qué tal? ¡Mañana en São Paulo con acción!",
          "Příliš žluťoučký kůň úpěl ďábelské ódy. ŽLUŤOUČKÝ KŮŇ.", "Zażółć gęślą jaźń. ŁÓDŹ, GDAŃSK, ŚWIĘTO.",
          "Ærøskøbing, Œuvre, cœur, ÅSE, Ísland, Þór, ðeyja."}},
        {1300,
         {"Съешь же ещё этих мягких французских булок, да выпей чаю.", "ШИРОКАЯ ЭЛЕКТРИФИКАЦИЯ ЮЖНЫХ ГУБЕРНИЙ.",
          "Ґанок, їжак, є, і — українські літери."}},
        {1100,
         {"Ξεσκεπάζω την ψυχοφθόρα βδελυγμία.", "ΤΑΧΙΣΤΗ ΑΛΩΠΗΞ ΒΑΦΗΣ ΨΗΜΕΝΗ ΓΗ, ΔΡΑΣΚΕΛΙΖΕΙ ΥΠΕΡ ΝΩΘΡΟΥ ΚΥΝΟΣ."}},
        {1100,
         {"今天天气很好，我们去公园散步吧！", "私はガラスを食べられます。それは私を傷つけません。",
          "나는 유리를 먹을 수 있어요. 그래도 아프지 않아요."}},
        {900,
         {"Hi 👋 👋🏽 👋🏿 thumbs 👍🏻 👍🏾",
          "Family 👨‍👩‍👧‍👦 and 👩‍💻 👨🏾‍🚀 at work",
          "Flags 🇫🇷 🇯🇵 🇺🇦 🇧🇷 and 🏳️‍🌈 ❤️ ✔️",
          "Party 🎉🥳🍕 math 𝛑 ≈ 3.14 ∑ ∞"}},
        {600, {"Z\u0351\u0342a\u0334l\u0336g\u0337o\u0335", "q\u0307\u0323 s\u0323\u0307 i\u0328\u0301"}},
        {800, {"name\tage\tcity", "\tindented\t\tdouble tab"}},
    };
    return all;
}

// What a US layout types on its own keys: English, code, punctuation, tabs.
const std::vector<Section>& usLayoutSections() {
    static const std::vector<Section> all = {everydaySections().front(), everydaySections().back()};
    return all;
}

constexpr std::array<std::string_view, 6> separators = {" ", "\n", "\r\n", " ", "\r", "\n"};

std::string sampleText(const std::vector<Section>& sections, std::size_t characters) {
    std::string text;
    std::size_t count = 0;
    std::size_t separatorIndex = 0;
    std::size_t shareTotal = 0;
    for (const Section& section : sections) {
        shareTotal += section.share;
    }
    for (const Section& section : sections) {
        const std::size_t budget = count + section.share * characters / shareTotal;
        for (std::size_t index = 0;; ++index) {
            const std::string_view sentence = section.sentences[index % section.sentences.size()];
            const std::string_view separator = separators[separatorIndex % separators.size()];
            const std::size_t size = codePointCount(sentence) + codePointCount(separator);
            if (count + size > budget) {
                break;
            }
            text.append(sentence).append(separator);
            count += size;
            ++separatorIndex;
        }
    }
    for (std::size_t filler = 0; count < characters; ++count, ++filler) {
        text.push_back(static_cast<char>('a' + filler % 26));
    }
    return text;
}

void appendUtf8(std::string& text, char32_t character) {
    if (character < 0x80) {
        text.push_back(static_cast<char>(character));
    } else if (character < 0x800) {
        text.push_back(static_cast<char>(0xC0 | (character >> 6)));
        text.push_back(static_cast<char>(0x80 | (character & 0x3F)));
    } else {
        text.push_back(static_cast<char>(0xE0 | (character >> 12)));
        text.push_back(static_cast<char>(0x80 | ((character >> 6) & 0x3F)));
        text.push_back(static_cast<char>(0x80 | (character & 0x3F)));
    }
}

} // namespace

std::string chineseSampleText(std::size_t characters, std::size_t distinct) {
    constexpr char32_t firstIdeograph = 0x4E00;
    constexpr std::size_t ideographs = 20902; // U+4E00..U+9FA5
    constexpr std::size_t stride = 37;        // coprime with the range: every pick is a different ideograph
    std::string text;
    std::uint32_t random = 12345;
    std::size_t introduced = 0;
    for (std::size_t index = 0; index < characters; ++index) {
        if (index % 97 == 96) {
            text.push_back('\n');
            continue;
        }
        if (index % 13 == 12) {
            appendUtf8(text, index % 3 == 0 ? U'\u3002' : U'\uFF0C');
            continue;
        }
        random = random * 1103515245U + 12345U;
        // About every other ideograph is one not seen yet, until all are in; the others repeat earlier ones.
        const bool introduce = introduced < distinct && (introduced == 0 || (random >> 16) % 2 == 0);
        const std::size_t pick = introduce ? introduced++ : (random >> 8) % introduced;
        appendUtf8(text, firstIdeograph + static_cast<char32_t>(pick * stride % ideographs));
    }
    return text;
}

std::string mixedSampleText(std::size_t characters) {
    return sampleText(everydaySections(), characters);
}

std::string manyScriptSampleText(std::size_t characters) {
    return sampleText(manyScriptSections(), characters);
}

std::string usLayoutSampleText(std::size_t characters) {
    return sampleText(usLayoutSections(), characters);
}

std::string withTypedLineEnds(const std::string& text) {
    std::string typed;
    typed.reserve(text.size());
    for (std::size_t index = 0; index < text.size(); ++index) {
        if (text[index] == '\r') {
            typed.push_back('\n');
            if (index + 1 < text.size() && text[index + 1] == '\n') {
                ++index;
            }
        } else {
            typed.push_back(text[index]);
        }
    }
    return typed;
}

} // namespace keyferry
