#include "engine/Typos.h"

#include <array>
#include <string_view>

namespace quillet {
namespace {

using Words = std::vector<std::pair<std::string, std::string>>;

Words commonWords() {
    return {
        {"teh", "the"},
        {"adn", "and"},
        {"taht", "that"},
        {"recieve", "receive"},
        {"wich", "which"},
        {"becuase", "because"},
        {"definately", "definitely"},
        {"seperate", "separate"},
        {"occured", "occurred"},
        {"untill", "until"},
        {"thier", "their"},
        {"alot", "a lot"},
        {"wierd", "weird"},
        {"freind", "friend"},
        {"tommorow", "tomorrow"},
        {"accomodate", "accommodate"},
        {"beleive", "believe"},
        {"goverment", "government"},
        {"enviroment", "environment"},
    };
}

Words accentsWords() {
    return {
        {"cafe", "café"},         {"naive", "naïve"},   {"facade", "façade"},
        {"jalapeno", "jalapeño"}, {"fiance", "fiancé"}, {"fiancee", "fiancée"},
        {"creme", "crème"},       {"pinata", "piñata"}, {"cliche", "cliché"},
        {"touche", "touché"},
    };
}

Words frenchWords() {
    return {
        {"deja", "déjà"},
        {"voila", "voilà"},
        {"etre", "être"},
        {"fenetre", "fenêtre"},
        {"francais", "français"},
        {"garcon", "garçon"},
        {"probleme", "problème"},
        {"systeme", "système"},
        {"evenement", "événement"},
        {"interessant", "intéressant"},
        {"reponse", "réponse"},
        {"deuxieme", "deuxième"},
        {"premiere", "première"},
        {"derniere", "dernière"},
        {"ecole", "école"},
        {"equipe", "équipe"},
        {"hopital", "hôpital"},
        {"parmis", "parmi"},
        {"malgres", "malgré"},
        {"quelquechose", "quelque chose"},
        {"aujourdhui", "aujourd'hui"},
        {"apparament", "apparemment"},
        {"notament", "notamment"},
        {"acceuil", "accueil"},
        {"professionel", "professionnel"},
        {"addresse", "adresse"},
        {"biensur", "bien sûr"},
        {"evidament", "évidemment"},
    };
}

Words germanWords() {
    return {
        {"vieleicht", "vielleicht"},
        {"warscheinlich", "wahrscheinlich"},
        {"ziehmlich", "ziemlich"},
        {"nähmlich", "nämlich"},
        {"garnicht", "gar nicht"},
        {"entgültig", "endgültig"},
        {"wiederspiegeln", "widerspiegeln"},
        {"seperat", "separat"},
        {"addresse", "Adresse"},
        {"rythmus", "Rhythmus"},
        {"maschiene", "Maschine"},
        {"reperatur", "Reparatur"},
        {"widerholung", "Wiederholung"},
        {"ergebniss", "Ergebnis"},
        {"kenntniss", "Kenntnis"},
        {"terasse", "Terrasse"},
        {"agressiv", "aggressiv"},
        {"fahrad", "Fahrrad"},
        {"gallerie", "Galerie"},
        {"tschüß", "tschüss"},
    };
}

Words spanishWords() {
    return {
        {"tambien", "también"}, {"aqui", "aquí"},
        {"despues", "después"}, {"facil", "fácil"},
        {"dificil", "difícil"}, {"informacion", "información"},
        {"dia", "día"},         {"porfavor", "por favor"},
        {"osea", "o sea"},      {"nesesario", "necesario"},
        {"exito", "éxito"},     {"telefono", "teléfono"},
        {"numero", "número"},   {"ultimo", "último"},
        {"rapido", "rápido"},   {"pagina", "página"},
        {"cancion", "canción"}, {"proximo", "próximo"},
        {"musica", "música"},   {"ningun", "ningún"},
        {"algun", "algún"},     {"ademas", "además"},
        {"jamas", "jamás"},     {"quizas", "quizás"},
        {"atras", "atrás"},     {"detras", "detrás"},
        {"manana", "mañana"},   {"senor", "señor"},
        {"espanol", "español"}, {"atravez", "a través"},
    };
}

Words symbolsWords() {
    return {
        {"(c)", "©"},   {"(r)", "®"},     {"(tm)", "™"},  {"->", "→"},    {"<-", "←"},
        {"<->", "↔"},   {"=>", "⇒"},      {"!=", "≠"},    {"<=", "≤"},    {">=", "≥"},
        {"+-", "±"},    {"...", "…"},     {"---", "—"},   {"(1/2)", "½"}, {"(1/4)", "¼"},
        {"(3/4)", "¾"}, {"(deg)", "°"},   {"(eur)", "€"}, {"(gbp)", "£"}, {"(yen)", "¥"},
        {"(inf)", "∞"}, {"(check)", "✓"},
    };
}

// ":heart:" and ":warning:" carry U+FE0F so that they show as colour emoji rather than as the
// plain text symbols they also are.
Words emojiWords() {
    return {
        {":smile:", "😄"},
        {":smiley:", "😃"},
        {":grin:", "😁"},
        {":joy:", "😂"},
        {":laughing:", "😆"},
        {":sweat_smile:", "😅"},
        {":wink:", "😉"},
        {":blush:", "😊"},
        {":slight_smile:", "🙂"},
        {":heart_eyes:", "😍"},
        {":sunglasses:", "😎"},
        {":thinking:", "🤔"},
        {":cry:", "😢"},
        {":sob:", "😭"},
        {":shrug:", "🤷"},
        {":facepalm:", "🤦"},
        {":heart:", "❤\uFE0F"},
        {":+1:", "👍"},
        {":thumbsup:", "👍"},
        {":-1:", "👎"},
        {":thumbsdown:", "👎"},
        {":clap:", "👏"},
        {":pray:", "🙏"},
        {":wave:", "👋"},
        {":ok_hand:", "👌"},
        {":muscle:", "💪"},
        {":raised_hands:", "🙌"},
        {":point_right:", "👉"},
        {":eyes:", "👀"},
        {":fire:", "🔥"},
        {":tada:", "🎉"},
        {":rocket:", "🚀"},
        {":sparkles:", "✨"},
        {":star:", "⭐"},
        {":100:", "💯"},
        {":zap:", "⚡"},
        {":bulb:", "💡"},
        {":warning:", "⚠\uFE0F"},
        {":white_check_mark:", "✅"},
        {":x:", "❌"},
        {":bug:", "🐛"},
        {":memo:", "📝"},
        {":calendar:", "📅"},
        {":lock:", "🔒"},
        {":key:", "🔑"},
        {":coffee:", "☕"},
    };
}

// Every tag closes itself and leaves the caret between the two tags, so "<p>" gives an empty
// paragraph ready to type into.
Words htmlWords() {
    static constexpr std::array<std::string_view, 29> tags = {
        "p",      "div",   "span", "b",       "i",          "strong", "em",  "u",
        "ul",     "ol",    "li",   "h1",      "h2",         "h3",     "h4",  "table",
        "tr",     "td",    "th",   "section", "header",     "footer", "nav", "main",
        "button", "label", "code", "pre",     "blockquote",
    };
    Words words;
    words.reserve(tags.size() + 3);
    for (std::string_view tag : tags) {
        std::string open = "<" + std::string(tag) + ">";
        words.emplace_back(open, open + "{cursor}</" + std::string(tag) + ">");
    }
    words.emplace_back("<a>", R"(<a href="{cursor}"></a>)");
    words.emplace_back("<img>", R"(<img src="{cursor}" alt="">)");
    words.emplace_back("<!>", "<!DOCTYPE html>");
    return words;
}

Words cssWords() {
    return {
        {"df", "display: flex;"},
        {"dg", "display: grid;"},
        {"db", "display: block;"},
        {"dib", "display: inline-block;"},
        {"dn", "display: none;"},
        {"posa", "position: absolute;"},
        {"posr", "position: relative;"},
        {"posf", "position: fixed;"},
        {"poss", "position: sticky;"},
        {"jcc", "justify-content: center;"},
        {"jcsb", "justify-content: space-between;"},
        {"aic", "align-items: center;"},
        {"fdc", "flex-direction: column;"},
        {"fww", "flex-wrap: wrap;"},
        {"mt", "margin-top: {cursor};"},
        {"mr", "margin-right: {cursor};"},
        {"mb", "margin-bottom: {cursor};"},
        {"ml", "margin-left: {cursor};"},
        {"pt", "padding-top: {cursor};"},
        {"pr", "padding-right: {cursor};"},
        {"pb", "padding-bottom: {cursor};"},
        {"pl", "padding-left: {cursor};"},
        {"m0", "margin: 0;"},
        {"p0", "padding: 0;"},
        {"w100", "width: 100%;"},
        {"h100", "height: 100%;"},
        {"bg", "background: {cursor};"},
        {"bgc", "background-color: {cursor};"},
        {"fz", "font-size: {cursor};"},
        {"fw", "font-weight: {cursor};"},
        {"fwb", "font-weight: bold;"},
        {"lh", "line-height: {cursor};"},
        {"tac", "text-align: center;"},
        {"tdn", "text-decoration: none;"},
        {"bd", "border: {cursor};"},
        {"bdrs", "border-radius: {cursor};"},
        {"ovh", "overflow: hidden;"},
        {"zi", "z-index: {cursor};"},
        {"op", "opacity: {cursor};"},
        {"cup", "cursor: pointer;"},
        {"bxz", "box-sizing: border-box;"},
    };
}

std::vector<Typos::Set> build() {
    using Mode = Matcher::Mode;
    using Fires = Typos::Fires;
    // The order matters: where two switched-on sets share a key, the earlier one wins.
    std::vector<Typos::Set> sets;
    sets.push_back({"common", "Common typos", Fires::wordEnds(), commonWords()});
    sets.push_back({"accents", "Accented words", Fires::wordEnds(), accentsWords()});
    sets.push_back({"french", "French", Fires::wordEnds(), frenchWords()});
    sets.push_back({"german", "German", Fires::wordEnds(), germanWords()});
    sets.push_back({"spanish", "Spanish", Fires::wordEnds(), spanishWords()});
    sets.push_back(
        {"symbols", "Symbols: (c) → © on space", Fires::like(Mode::delimiter), symbolsWords()});
    sets.push_back({"emoji", "Emoji: :smile: → 😄", Fires::like(Mode::instant), emojiWords()});
    sets.push_back({"html", "HTML: <p> closes itself", Fires::like(Mode::instant), htmlWords()});
    sets.push_back(
        {"css", "CSS: df then Tab → display: flex;", Fires::like(Mode::tab), cssWords()});
    return sets;
}

} // namespace

const std::vector<Typos::Set>& Typos::all() {
    static const std::vector<Set> sets = build();
    return sets;
}

std::string Typos::key(std::string_view id) {
    return "typo." + std::string(id);
}

std::vector<const Typos::Set*> Typos::on(const Preferences& preferences) {
    std::vector<const Set*> sets;
    for (const Set& set : all()) {
        if (preferences.isOn(key(set.id))) {
            sets.push_back(&set);
        }
    }
    return sets;
}

Matcher::Table Typos::corrections(const Preferences& preferences) {
    Matcher::Table table;
    for (const Set* set : on(preferences)) {
        if (set->fires.kind != Fires::Kind::wordEnds) {
            continue;
        }
        for (const auto& [misspelt, correct] : set->words) {
            table.try_emplace(misspelt, correct);
        }
    }
    return table;
}

Matcher::Extras Typos::extras(const Preferences& preferences) {
    Matcher::Extras extras;
    for (const Set* set : on(preferences)) {
        if (set->fires.kind != Fires::Kind::like) {
            continue;
        }
        for (const auto& [abbreviation, replacement] : set->words) {
            extras.try_emplace(abbreviation, Matcher::Extra{replacement, set->fires.mode});
        }
    }
    return extras;
}

bool Typos::groupIsOn(const Preferences& preferences, const std::vector<std::string>& ids) {
    for (const std::string& id : ids) {
        if (preferences.isOn(key(id))) {
            return true;
        }
    }
    return false;
}

bool Typos::setGroup(Preferences& preferences, const std::vector<std::string>& ids, bool value) {
    if (ids.empty()) {
        return true;
    }
    // Switching on starts gently with the first set; the user adds the others one by one.
    bool kept = preferences.setValue(key(ids.front()), value);
    if (!value) {
        for (std::size_t i = 1; i < ids.size(); ++i) {
            kept = preferences.setValue(key(ids[i]), false) && kept;
        }
    }
    return kept;
}

const std::vector<std::string>& Typos::typoGroup() {
    static const std::vector<std::string> ids = [] {
        std::vector<std::string> wordEndSets;
        for (const Set& set : all()) {
            if (set.fires.kind == Fires::Kind::wordEnds) {
                wordEndSets.push_back(set.id);
            }
        }
        return wordEndSets;
    }();
    return ids;
}

const std::vector<std::string>& Typos::symbolGroup() {
    // The switch promises ":smile: or -> and get 😄 or →", which is what symbols and emoji do.
    // HTML and CSS stay out: someone who wants arrows in an e-mail would be surprised to see
    // "<b>" grow a closing tag or "df" then Tab turn into CSS, so those are switched on one by
    // one on the symbol page by the people who write markup.
    static const std::vector<std::string> ids = {"symbols", "emoji"};
    return ids;
}

} // namespace quillet
