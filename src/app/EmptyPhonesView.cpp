#include "EmptyPhonesView.h"

#include "Symbols.h"
#include "SystemColors.h"
#include "SystemFonts.h"

#include <QLabel>
#include <QVBoxLayout>

namespace keyferry {

EmptyPhonesView::EmptyPhonesView(QWidget* parent)
    : CardView(parent), icon(new QLabel(this)), title(new QLabel(QStringLiteral("No phones paired"), this)) {
    icon->setPixmap(Symbols::tinted(QStringLiteral("iphone.slash"), SystemColors::blue(), 25, devicePixelRatioF()));
    icon->setAlignment(Qt::AlignCenter);
    icon->setFixedSize(42, 42);
    icon->setAccessibleName(QStringLiteral("No phones"));
    title->setFont(SystemFonts::system(15, QFont::DemiBold));

    auto* column = new QVBoxLayout(this);
    column->setSpacing(10);
    column->addStretch(1);
    column->addWidget(icon, 0, Qt::AlignHCenter);
    column->addWidget(title, 0, Qt::AlignHCenter);
    column->addStretch(1);
}

} // namespace keyferry
