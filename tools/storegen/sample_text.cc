#include "storegen/sample_text.h"

#include <array>

namespace qaaisp::storegen {
namespace {

using Texts = std::string_view;

constexpr Texts kEnNames[] = {"Alice Thornton", "Bob Castellano", "Carol Mbeki", "David O'Neill",
                              "Erin Walsh"};
constexpr Texts kEnSubjects[] = {"Quarterly figures for review",
                                 "Agenda for Thursday's planning meeting",
                                 "Invoice 2023-1184 overdue",
                                 "Draft proposal attached",
                                 "Lunch on Friday?",
                                 "Server maintenance window this weekend"};
constexpr Texts kEnSentences[] = {
    "Please find the latest numbers below and let me know if anything looks off.",
    "We agreed to move the deadline to the end of the month.",
    "The attached document has the changes from yesterday's call.",
    "Could you confirm the room booking before noon?",
    "I have copied the team so everyone sees the same version.",
    "Thanks again for the quick turnaround on this."};
constexpr Texts kEnPrefixes[] = {"Re: ", "Fwd: ", "RE: "};

constexpr Texts kDeNames[] = {"Jürgen Müller", "Anna Schäfer", "Björn Weiß", "Käthe Groß"};
constexpr Texts kDeSubjects[] = {"Besprechung nächste Woche", "Änderungen am Entwurf",
                                 "Grüße aus München", "Rückfrage zur Rechnung",
                                 "Übersicht der Aufgaben für März"};
constexpr Texts kDeSentences[] = {"Könnten Sie bitte die Unterlagen bis Freitag prüfen?",
                                  "Die Änderungen sind im Anhang gelb markiert.",
                                  "Wir treffen uns um zehn Uhr im großen Besprechungsraum.",
                                  "Für Rückfragen stehe ich gern zur Verfügung.",
                                  "Viele Grüße und ein schönes Wochenende."};
constexpr Texts kDePrefixes[] = {"AW: ", "WG: ", "Re: "};

constexpr Texts kPlNames[] = {"Łukasz Wiśniewski", "Zofia Żółkiewska", "Paweł Kołodziej"};
constexpr Texts kPlSubjects[] = {"Spotkanie w środę", "Poprawki do umowy",
                                 "Zaproszenie na szkolenie", "Pilne: zmiana terminu"};
constexpr Texts kPlSentences[] = {"Proszę o przesłanie poprawionej wersji do piątku.",
                                  "Spotkanie odbędzie się w sali konferencyjnej na piętrze.",
                                  "Dziękuję za szybką odpowiedź.",
                                  "Załączam listę uczestników szkolenia."};
constexpr Texts kPlPrefixes[] = {"Odp: ", "PD: "};

constexpr Texts kRuNames[] = {"Дмитрий Иванов", "Ольга Смирнова", "Сергей Кузнецов"};
constexpr Texts kRuSubjects[] = {"Отчёт за квартал", "Встреча в понедельник", "Счёт на оплату",
                                 "Новая версия договора"};
constexpr Texts kRuSentences[] = {"Пожалуйста, проверьте приложенный документ до пятницы.",
                                  "Встреча переносится на следующую неделю.",
                                  "Спасибо за оперативный ответ.",
                                  "Все изменения отмечены в тексте."};
constexpr Texts kRuPrefixes[] = {"Re: ", "Fwd: "};

constexpr Texts kJaNames[] = {"山田 太郎", "佐藤 花子", "鈴木 一郎"};
constexpr Texts kJaSubjects[] = {"会議の日程について", "見積書の送付", "来週の打ち合わせ",
                                 "資料のご確認のお願い"};
constexpr Texts kJaSentences[] = {"お世話になっております。",
                                  "資料を添付いたしましたのでご確認ください。",
                                  "来週の火曜日はいかがでしょうか。", "よろしくお願いいたします。"};
constexpr Texts kJaPrefixes[] = {"Re: ", "Fw: "};

constexpr Texts kZhNames[] = {"王小明", "李华", "张伟"};
constexpr Texts kZhSubjects[] = {"会议通知", "季度报告", "关于合同的修改", "下周出差安排"};
constexpr Texts kZhSentences[] = {"请在周五之前审阅附件中的文件。", "会议改到下周二上午十点。",
                                  "谢谢您的及时回复。", "如有问题请随时联系我。"};
constexpr Texts kZhPrefixes[] = {"回复: ", "转发: "};

constexpr Texts kElNames[] = {"Ελένη Παπαδοπούλου", "Γιώργος Νικολάου"};
constexpr Texts kElSubjects[] = {"Συνάντηση την Τρίτη", "Προσφορά για το έργο",
                                 "Ενημέρωση προγράμματος"};
constexpr Texts kElSentences[] = {"Παρακαλώ ελέγξτε το συνημμένο αρχείο.",
                                  "Η συνάντηση μεταφέρθηκε για την επόμενη εβδομάδα.",
                                  "Ευχαριστώ για τη γρήγορη απάντηση."};
constexpr Texts kElPrefixes[] = {"ΑΠ: ", "Re: "};

constexpr Texts kFrNames[] = {"Hélène Lefèvre", "François Dubois", "Gaëlle Moreau"};
constexpr Texts kFrSubjects[] = {"Réunion de lundi", "Facture n° 4521 — relance",
                                 "Propositions pour l'été", "Compte rendu de la réunion"};
constexpr Texts kFrSentences[] = {"Vous trouverez ci-joint le compte rendu de la réunion.",
                                  "Pourriez-vous vérifier les chiffres avant vendredi ?",
                                  "Merci beaucoup pour votre réponse rapide.",
                                  "Bien cordialement, et à très bientôt."};
constexpr Texts kFrPrefixes[] = {"RE: ", "TR: "};

constexpr Texts kEsNames[] = {"José García", "María Fernández", "Íñigo Martínez"};
constexpr Texts kEsSubjects[] = {"Reunión del miércoles", "Presupuesto revisado",
                                 "¿Nos vemos mañana?", "Información sobre la campaña"};
constexpr Texts kEsSentences[] = {"Adjunto el presupuesto con los cambios que comentamos.",
                                  "La reunión será en la sala pequeña a las once.",
                                  "Muchas gracias por tu ayuda.", "Avísame si necesitas algo más."};
constexpr Texts kEsPrefixes[] = {"RE: ", "RV: "};

constexpr std::array kLanguages = {
    Language{"en", "example.com", "us-ascii", false, kEnNames, kEnSubjects, kEnSentences,
             kEnPrefixes},
    Language{"de", "example.de", "ISO-8859-1", false, kDeNames, kDeSubjects, kDeSentences,
             kDePrefixes},
    Language{"pl", "example.pl", "ISO-8859-2", false, kPlNames, kPlSubjects, kPlSentences,
             kPlPrefixes},
    Language{"ru", "example.ru", "KOI8-R", true, kRuNames, kRuSubjects, kRuSentences, kRuPrefixes},
    Language{"ja", "example.jp", "ISO-2022-JP", true, kJaNames, kJaSubjects, kJaSentences,
             kJaPrefixes},
    Language{"zh", "example.cn", "GB2312", true, kZhNames, kZhSubjects, kZhSentences, kZhPrefixes},
    Language{"el", "example.gr", "ISO-8859-7", false, kElNames, kElSubjects, kElSentences,
             kElPrefixes},
    Language{"fr", "example.fr", "windows-1252", false, kFrNames, kFrSubjects, kFrSentences,
             kFrPrefixes},
    Language{"es", "example.es", "UTF-8", false, kEsNames, kEsSubjects, kEsSentences, kEsPrefixes},
};

constexpr Texts kMailers[] = {"Quill Arbor WebMail 9.2", "Larkspur Mail 115.4.1",
                              "Tessera Desktop 16.0",    "Pinecone Mailer (2.3731.700.6)",
                              "Marlin Webmail/1.6.5",    "Harbour Client 3.46.4"};

constexpr Texts kHosts[] = {"mail.example.com",  "mx1.example.org", "smtp.example.net",
                            "relay.example.com", "mx.example.jp",   "post.example.de"};

}  // namespace

std::span<const Language> Languages() { return kLanguages; }
std::span<const std::string_view> MailerNames() { return kMailers; }
std::span<const std::string_view> HostNames() { return kHosts; }

}  // namespace qaaisp::storegen
